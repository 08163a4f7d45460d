# Lists the suites of a GoogleTest program as tests for ctest, each one process: under wine starting one takes longer than
# most tests do. Run as
#   cmake "-DCOMMAND=<launcher;program>" -DNOT_RUN=<Suite.Test:...> -DFILE=<file> -P ListSuites.cmake

cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${COMMAND} --gtest_list_tests OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE "\r" "" output "${output}")
string(REGEX MATCHALL "\n[A-Za-z0-9_/]+\\.[^\n]*" suites "\n${output}")
if(NOT suites)
  message(FATAL_ERROR "no tests in ${COMMAND}: ${output}")
endif()
list(REVERSE suites)  # the longest stand at the end
list(TRANSFORM COMMAND REPLACE "(.+)" "[==[\\1]==]")
list(JOIN COMMAND " " command)
set(tests "")
foreach(suite IN LISTS suites)
  string(REGEX MATCH "[A-Za-z0-9_/]+" name "${suite}")
  string(APPEND tests "add_test([==[${name}]==] ${command} [==[--gtest_filter=${name}.*-${NOT_RUN}]==])\n"
    "set_tests_properties([==[${name}]==] PROPERTIES TIMEOUT 300)\n")
  if(name STREQUAL "Destruction")  # asserts a time, which three suites beside it would double
    string(APPEND tests "set_tests_properties([==[${name}]==] PROPERTIES RUN_SERIAL TRUE)\n")
  endif()
endforeach()
file(WRITE ${FILE} "${tests}")
