# cmake -DTESTS=directory -DCOMPILE_COMMANDS=file -P check_orphans.cmake
#
# Every C and C++ source under the directory is compiled by some target: a test
# that is not built passes forever.
cmake_minimum_required(VERSION 3.25)

if(NOT EXISTS ${COMPILE_COMMANDS})
  message(FATAL_ERROR "${COMPILE_COMMANDS} is missing: the generator must write it")
endif()
file(READ ${COMPILE_COMMANDS} json)
string(JSON count LENGTH "${json}")
set(compiled)
math(EXPR last "${count} - 1")
foreach(i RANGE ${last})
  string(JSON source GET "${json}" ${i} file)
  list(APPEND compiled ${source})
endforeach()

file(GLOB_RECURSE sources ${TESTS}/*.c ${TESTS}/*.cc ${TESTS}/*.cpp)
set(orphans)
foreach(source ${sources})
  if(NOT source IN_LIST compiled)
    list(APPEND orphans ${source})
  endif()
endforeach()
list(LENGTH sources total)
if(total EQUAL 0)
  message(FATAL_ERROR "no sources under ${TESTS}")
endif()
if(orphans)
  list(JOIN orphans "\n  " text)
  message(FATAL_ERROR "no target compiles these:\n  ${text}")
endif()
message(STATUS "${total} sources, all of them compiled")
