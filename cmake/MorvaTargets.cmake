# What every target of the tree has in common.

add_library(morva_headers INTERFACE)
add_library(morva::headers ALIAS morva_headers)
target_include_directories(morva_headers INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# The C++ interface: headers alone, on the embedded host. They load the library
# when the program runs; who wants it linked in adds morva::morva.
add_library(morva_cpp INTERFACE)
add_library(morva::cpp ALIAS morva_cpp)
target_compile_features(morva_cpp INTERFACE cxx_std_20)
target_link_libraries(morva_cpp INTERFACE morva_headers qzhost ${CMAKE_DL_LIBS})

# Warnings and sanitizers; linked privately by each target.
add_library(morva_build INTERFACE)
target_compile_options(morva_build INTERFACE -Wall -Wextra -Wpedantic -Werror
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
if(MORVA_SANITIZE)
  target_compile_options(morva_build INTERFACE
    -fsanitize=${MORVA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(morva_build INTERFACE -fsanitize=${MORVA_SANITIZE})
endif()

# Counters in the libraries' code: not in the tests', which so stay as quick as
# they are. A branch is one that is in the source: nothing is optimised, and
# inline functions that nothing calls are kept, to be seen.
if(MORVA_COVERAGE)
  add_library(morva_counted INTERFACE)
  target_compile_options(morva_counted INTERFACE
    --coverage -fprofile-update=atomic -O0 -g1 -fkeep-inline-functions)
endif()

# Builds NAME as a shared and as a static library from one set of objects:
# targets NAME (shared), NAME_static and NAME_objects; the first two are also
# morva::NAME and morva::NAME_static, their names once installed.
function(morva_add_library name)
  cmake_parse_arguments(arg "" "VERSION_SCRIPT" "SOURCES;OPTIONS;LINK_OPTIONS" ${ARGN})

  add_library(${name}_objects OBJECT ${arg_SOURCES})
  set_target_properties(${name}_objects PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden C_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${name}_objects PRIVATE -fno-semantic-interposition ${arg_OPTIONS})
  if(MORVA_COVERAGE)
    target_link_libraries(${name}_objects PRIVATE morva_counted)
  endif()
  target_include_directories(${name}_objects PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name}_objects PUBLIC morva_headers PRIVATE morva_build)

  add_library(${name} SHARED $<TARGET_OBJECTS:${name}_objects>)
  add_library(morva::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    LINK_DEPENDS ${arg_VERSION_SCRIPT})
  # Clang's sanitizers are in the program, and a library finds them there.
  if(NOT (MORVA_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang"))
    target_link_options(${name} PRIVATE -Wl,-z,defs)
  endif()
  target_link_options(${name} PRIVATE
    -Wl,--version-script=${arg_VERSION_SCRIPT} -Wl,--no-undefined-version
    -Wl,-z,relro -Wl,-z,now ${arg_LINK_OPTIONS})
  target_link_libraries(${name} PUBLIC morva_headers PRIVATE morva_build)

  add_library(${name}_static STATIC $<TARGET_OBJECTS:${name}_objects>)
  add_library(morva::${name}_static ALIAS ${name}_static)
  set_target_properties(${name}_static PROPERTIES OUTPUT_NAME ${name})
  target_link_libraries(${name}_static
    PUBLIC morva_headers PRIVATE $<BUILD_INTERFACE:morva_build>)
  if(MORVA_COVERAGE)
    target_link_options(${name} PRIVATE --coverage)
    target_link_options(${name}_static PUBLIC --coverage)
  endif()
endfunction()
