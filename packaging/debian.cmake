# How the Debian packages are configured, with the flags of the distribution:
#
#   cmake -C packaging/debian.cmake -S . -B build/package
#   cmake --build build/package --parallel
#   (cd build/package && cpack)
#
# Needs dpkg-dev and file.
find_program(buildflags dpkg-buildflags NO_CACHE)
if(NOT buildflags)
  message(FATAL_ERROR "dpkg-buildflags is missing: it is in the Debian package dpkg-dev")
endif()

set(CMAKE_INSTALL_PREFIX /usr CACHE PATH "Where packages install to")
set(CMAKE_BUILD_TYPE Release CACHE STRING "Packages are optimised")
set(MORVA_BUILD_TESTS OFF CACHE BOOL "Packages are built without tests")
set(MORVA_BUILD_EXAMPLES OFF CACHE BOOL "Packages are built without examples")

# Sets the cache entries ARGN to the sum of the distribution's flags KINDS.
function(take_flags kinds)
  set(flags)
  foreach(kind IN LISTS kinds)
    execute_process(
      COMMAND ${CMAKE_COMMAND} -E env DEB_BUILD_MAINT_OPTIONS=hardening=+all
        ${buildflags} --get ${kind}
      WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}/..
      OUTPUT_VARIABLE some OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    string(APPEND flags " ${some}")
  endforeach()
  # The packages carry no debug information.
  string(REGEX REPLACE "(^| )-g( |$)" " " flags "${flags}")
  string(STRIP "${flags}" flags)
  foreach(variable IN LISTS ARGN)
    set(${variable} "${flags}" CACHE STRING "Flags of the distribution")
  endforeach()
endfunction()

take_flags("CFLAGS;CPPFLAGS" CMAKE_C_FLAGS)
take_flags("CXXFLAGS;CPPFLAGS" CMAKE_CXX_FLAGS)
take_flags("LDFLAGS" CMAKE_EXE_LINKER_FLAGS CMAKE_SHARED_LINKER_FLAGS)
