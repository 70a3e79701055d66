# CPack runs this between installing the components and packing them: strips,
# compresses, adds what Debian wants beside the files, and finds out which
# libraries the programs need.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Answers the output of a command that must exist and succeed.
function(ask out package program)
  find_program(found_${program} ${program} NO_CACHE)
  if(NOT found_${program})
    message(FATAL_ERROR "${program} is missing: it is in the Debian package ${package}")
  endif()
  execute_process(COMMAND ${found_${program}} ${ARGN}
    WORKING_DIRECTORY ${work} OUTPUT_VARIABLE text ERROR_VARIABLE problems RESULT_VARIABLE status
    OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${program} failed with ${status}:\n${problems}")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# dpkg-shlibdeps expects a source package around it.
set(work ${CPACK_TOPLEVEL_DIRECTORY}/stage)
file(MAKE_DIRECTORY ${work}/debian)
file(WRITE ${work}/debian/control "Source: morva\n\nPackage: morva\nArchitecture: any\n")

ask(architecture dpkg-dev dpkg-architecture -qDEB_HOST_MULTIARCH)
if(NOT CPACK_MORVA_LIBDIR STREQUAL "lib/${architecture}")
  message(FATAL_ERROR "This tree installs libraries to ${CPACK_MORVA_LIBDIR}, packages to "
    "lib/${architecture}: configure with -C packaging/debian.cmake")
endif()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} COMPONENT)
  set(package ${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME})
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component})
  if(NOT IS_DIRECTORY ${root})
    message(FATAL_ERROR "nothing is installed as ${root}")
  endif()

  # ---- Stripped, as the distribution does it ----
  file(GLOB shared ${root}/usr/lib/${architecture}/*.so.*)
  file(GLOB programs ${root}/usr/bin/*)
  file(GLOB archives ${root}/usr/lib/${architecture}/*.a)
  set(needing)
  foreach(file IN LISTS shared programs)
    if(NOT IS_SYMLINK ${file})
      run(${CPACK_MORVA_STRIP} --strip-unneeded --remove-section=.comment --remove-section=.note
        ${file})
      list(APPEND needing ${file})
    endif()
  endforeach()
  foreach(file IN LISTS archives)
    run(${CPACK_MORVA_STRIP} --strip-debug --remove-section=.comment --remove-section=.note
      --enable-deterministic-archives ${file})
  endforeach()

  # ---- Manual pages and documents ----
  file(GLOB_RECURSE pages ${root}/usr/share/man/*.[1-9])
  foreach(file IN LISTS pages)
    run(gzip -9n ${file})
  endforeach()
  set(documents ${root}/usr/share/doc/${package})
  file(COPY ${CPACK_MORVA_PACKAGING}/copyright DESTINATION ${documents})
  configure_file(${CPACK_MORVA_PACKAGING}/changelog ${documents}/changelog.Debian COPYONLY)
  configure_file(${CPACK_MORVA_CHANGELOG} ${documents}/changelog COPYONLY)
  run(gzip -9n ${documents}/changelog ${documents}/changelog.Debian)
  file(GLOB overrides ${CPACK_MORVA_PACKAGING}/lintian/${package})
  file(COPY ${overrides} DESTINATION ${root}/usr/share/lintian/overrides)

  # ---- The same modes whatever the umask ----
  run(find ${root} -type d -exec chmod 755 {} +)
  run(find ${root} -type f -exec chmod u=rw,go=r {} +)
  if(programs)
    run(chmod 755 ${programs})
  endif()

  # ---- Libraries of other packages ----
  if(needing)
    list(TRANSFORM needing PREPEND -e)
    # The library is not found, for it is not installed: nothing of it is needed.
    ask(depends dpkg-dev dpkg-shlibdeps -O ${needing})
    if(NOT depends MATCHES "shlibs:Depends=(.+)")
      message(FATAL_ERROR "dpkg-shlibdeps answered: ${depends}")
    endif()
    list(APPEND CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS ${CMAKE_MATCH_1})
    list(JOIN CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS ", "
      CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS)
  endif()
endforeach()
file(REMOVE_RECURSE ${work})
