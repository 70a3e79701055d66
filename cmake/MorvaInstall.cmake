# What is installed, in three components: "runtime" (what programs need to run),
# "development" (what it takes to build them) and "tools" (the command line).
# Nothing installed names the place it was installed to: a tree can be moved.
include(CMakePackageConfigHelpers)

# Sections 1 and 3 of the manual go with the programs and with the headers.
foreach(manual tools=1 development=3)
  string(REGEX MATCH "^[a-z]+" component ${manual})
  string(REGEX MATCH "[0-9]$" section ${manual})
  file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/*.${section})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endforeach()

if(TARGET morva_cli)
  install(TARGETS morva_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/morva DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development FILES_MATCHING PATTERN *.h PATTERN *.hpp)

# ---- Libraries, and what find_package(morva) reads -----------------------------
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/morva)
set_target_properties(morva_headers PROPERTIES EXPORT_NAME headers)
set_target_properties(morva_cpp PROPERTIES EXPORT_NAME cpp)
install(TARGETS morva_headers EXPORT morva-headers)
install(TARGETS morva qzhost morva_cpp EXPORT morva-shared
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS morva_static qzhost_static EXPORT morva-static
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
# A file each, so that one kind of library can be left out of an installation.
foreach(kind headers shared static)
  install(EXPORT morva-${kind} NAMESPACE morva:: FILE morva-${kind}.cmake
    DESTINATION ${package_dir} COMPONENT development)
endforeach()

write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/morva-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/morva-config.cmake
    ${PROJECT_BINARY_DIR}/package/morva-config-version.cmake
  DESTINATION ${package_dir} COMPONENT development)

# ---- pkg-config -------------------------------------------------------------------
# A file finds its prefix from where it lies itself, unless the libraries were
# sent to an absolute path.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE "${pkgconfig_dir}")
  set(pc_prefix ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH pc_prefix /${pkgconfig_dir} /)
  string(REGEX REPLACE "/$" "" pc_prefix "\${pcfiledir}/${pc_prefix}")
endif()
foreach(kind LIB INCLUDE)
  string(TOLOWER ${kind}dir variable)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}DIR}")
    set(pc_${variable} "${CMAKE_INSTALL_${kind}DIR}")
  else()
    set(pc_${variable} "\${prefix}/${CMAKE_INSTALL_${kind}DIR}")
  endif()
endforeach()
foreach(library morva qzhost)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${library}.pc.in
    ${PROJECT_BINARY_DIR}/package/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${library}.pc
    DESTINATION ${pkgconfig_dir} COMPONENT development)
endforeach()

# ---- The debugger's printers -------------------------------------------------------
# gdb looks below its own data directory for a file named after the library's
# full path, which is known when the tree is installed.
install(FILES ${PROJECT_SOURCE_DIR}/debug/morva-gdb.py
  DESTINATION ${CMAKE_INSTALL_DATADIR}/morva COMPONENT development)
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(gdb_libdir "${CMAKE_INSTALL_LIBDIR}")
else()
  set(gdb_libdir "\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}")
endif()
file(RELATIVE_PATH gdb_way
  ${CMAKE_INSTALL_FULL_LIBDIR} ${CMAKE_INSTALL_FULL_DATADIR}/morva/morva-gdb.py)
configure_file(${CMAKE_CURRENT_LIST_DIR}/gdb-auto-load.py.in
  ${PROJECT_BINARY_DIR}/package/gdb-auto-load.py @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/gdb-auto-load.py
  DESTINATION "${CMAKE_INSTALL_DATADIR}/gdb/auto-load${gdb_libdir}"
  RENAME libmorva.so.${PROJECT_VERSION}-gdb.py COMPONENT development)
