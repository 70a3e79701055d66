# find_package(morva 1 COMPONENTS shared static cpp)
#
# Makes these targets:
#   morva::headers                              the headers alone
#   morva::morva, morva::qzhost                 library and embedded host, shared
#   morva::cpp                                  the C++ interface, on that host
#   morva::morva_static, morva::qzhost_static   library and embedded host, static
# A component that is asked for must be installed; without any, there is what
# there is.

foreach(_morva_kind shared static)
  set(morva_${_morva_kind}_FOUND FALSE)
  if(EXISTS "${CMAKE_CURRENT_LIST_DIR}/morva-${_morva_kind}.cmake")
    set(morva_${_morva_kind}_FOUND TRUE)
  endif()
endforeach()
set(morva_cpp_FOUND ${morva_shared_FOUND})

foreach(_morva_component IN LISTS morva_FIND_COMPONENTS)
  if(NOT morva_FIND_REQUIRED_${_morva_component} OR morva_${_morva_component}_FOUND)
    continue()
  endif()
  set(morva_FOUND FALSE)
  if(_morva_component MATCHES "^(shared|static|cpp)$")
    set(morva_NOT_FOUND_MESSAGE
      "Morva is installed without the component '${_morva_component}'.")
  else()
    set(morva_NOT_FOUND_MESSAGE
      "Morva has no component '${_morva_component}'; it has shared, static and cpp.")
  endif()
  return()
endforeach()

include("${CMAKE_CURRENT_LIST_DIR}/morva-headers.cmake")
foreach(_morva_kind shared static)
  if(morva_${_morva_kind}_FOUND)
    include("${CMAKE_CURRENT_LIST_DIR}/morva-${_morva_kind}.cmake")
  endif()
endforeach()

# The static libraries are compiled from C++, and the host needs its run-time
# library. A project of C alone cannot link "as C++", but it can name what it needs.
get_property(_morva_languages GLOBAL PROPERTY ENABLED_LANGUAGES)
if(morva_static_FOUND AND NOT "CXX" IN_LIST _morva_languages)
  foreach(_morva_target morva::morva_static morva::qzhost_static)
    get_target_property(_morva_configurations ${_morva_target} IMPORTED_CONFIGURATIONS)
    foreach(_morva_configuration IN LISTS _morva_configurations)
      set_property(TARGET ${_morva_target} PROPERTY
        IMPORTED_LINK_INTERFACE_LANGUAGES_${_morva_configuration} C)
    endforeach()
  endforeach()
  set_property(TARGET morva::qzhost_static APPEND PROPERTY INTERFACE_LINK_LIBRARIES stdc++)
endif()
