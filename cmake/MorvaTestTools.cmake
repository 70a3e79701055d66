# morva_need_tools(PROGRAM=PACKAGE...): each program is found, as the variable
# MORVA_TOOL_<PROGRAM>; else configuring ends and names the Debian package.
function(morva_need_tools)
  foreach(tool IN LISTS ARGN)
    string(REGEX MATCH "^[^=]*" program ${tool})
    string(REGEX MATCH "[^=]*$" package ${tool})
    find_program(MORVA_TOOL_${program} ${program})
    mark_as_advanced(MORVA_TOOL_${program})
    if(NOT MORVA_TOOL_${program})
      message(FATAL_ERROR "The tests need ${program}, of the Debian package ${package}, and it is "
        "missing. To install what they need: sh scripts/install-tools.sh build test")
    endif()
  endforeach()
endfunction()
