# The Debian packages, one per component. packaging/debian.cmake says how to
# configure a tree for them; packaging/stage.cmake finishes what is installed.

# The changelog knows the version of the packages.
set(debian ${PROJECT_SOURCE_DIR}/packaging)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${debian}/changelog)
file(STRINGS ${debian}/changelog heading LIMIT_COUNT 1)
if(NOT heading MATCHES "^morva \\(([^)-]+)-([^)]+)\\) ")
  message(FATAL_ERROR "packaging/changelog does not start with a version: ${heading}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_2})
if(NOT CMAKE_MATCH_1 VERSION_EQUAL PROJECT_VERSION)
  message(FATAL_ERROR
    "packaging/changelog is at version ${CMAKE_MATCH_1}, the project at ${PROJECT_VERSION}")
endif()
set(exactly "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_VENDOR "Morva")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${debian}/stage.cmake)
set(CPACK_MORVA_PACKAGING ${debian})
set(CPACK_MORVA_CHANGELOG ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
set(CPACK_MORVA_LIBDIR ${CMAKE_INSTALL_LIBDIR})
set(CPACK_MORVA_STRIP ${CMAKE_STRIP})
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Morva developers <morva@example.org>")
set(CPACK_DEBIAN_PACKAGE_SOURCE morva)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# The descriptions below start with a summary of their own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(morva_about
  "Morva is an associative array in memory, as a loadable extension library with
a plain C interface. Tables keep several records per key, insertion order and
running sums; they never rehash and never move a record.
")

# CPack has no variable for Multi-Arch, but it writes Section as it is.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libmorva1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION "libs\nMulti-Arch: same")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "in-memory associative array (shared libraries)
${morva_about}
This package has the library and the embedded host, which gives programs
without a host of their own the services that the library takes.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${debian}/control/shlibs ${debian}/control/symbols ${debian}/control/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmorva-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION "libdevel\nMulti-Arch: same")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libmorva1 ${exactly}")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "in-memory associative array (development files)
${morva_about}
This package has the headers for C and C++, the static libraries, and the files
that CMake and pkg-config read.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME morva-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION "utils\nMulti-Arch: foreign")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libmorva1 ${exactly}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "count, sum, join and de-duplicate CSV and TSV files
${morva_about}
This package has the command-line program morva, which works on tables of
comma- or tab-separated values and keeps their rows in first-seen order.")

include(CPack)
