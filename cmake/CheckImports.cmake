# Checks that the Windows library needs the system's own libraries alone, and that it exports what Tarvex.def says: run as
#   cmake -DLIBRARY=<file> -DOBJDUMP=<objdump> -DDEFINITIONS=<Tarvex.def> -P CheckImports.cmake

cmake_minimum_required(VERSION 3.25)

set(system advapi32 bcrypt crypt32 kernel32 msvcrt ntdll user32 ws2_32)

execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "DLL Name: [^\n]+" imported "${output}")
list(TRANSFORM imported REPLACE "DLL Name: (.*)\\.dll" "\\1")
list(TRANSFORM imported TOLOWER)
set(others ${imported})
list(REMOVE_ITEM others ${system})
if(others OR NOT imported)
  message(FATAL_ERROR "${LIBRARY} needs other libraries than the system's: ${others}")
endif()

string(REGEX MATCHALL "\\] tarvex_[a-z0-9_]+" exported "${output}")
list(TRANSFORM exported REPLACE "\\] " "")
file(STRINGS ${DEFINITIONS} defined REGEX "tarvex_")
list(TRANSFORM defined STRIP)
list(SORT exported)
list(SORT defined)
if(NOT exported STREQUAL defined)
  message(FATAL_ERROR "${DEFINITIONS} says ${defined}, the library exports ${exported}")
endif()
