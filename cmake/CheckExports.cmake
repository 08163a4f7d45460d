# Checks that a shared library exports the interface and nothing else: run as
#   cmake -DLIBRARY=<file> -DLIST=<file> -DSYMBOLS="<command that lists exported symbols>" -DFILTER=<c++filt> -P CheckExports.cmake
# The list holds one name a line, without parameters: they are written differently from system to system.

cmake_minimum_required(VERSION 3.25)

separate_arguments(SYMBOLS)
execute_process(COMMAND ${SYMBOLS} ${LIBRARY} COMMAND ${FILTER} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE ";" "," output "${output}")
string(REPLACE "\n" ";" lines "${output}")

set(exported "")
foreach(line IN LISTS lines)
  # nm: "<address> T <name>"; objdump: "[<ordinal>] <name>".
  if(line MATCHES "^([0-9a-f]+ [A-Zu]|[ \t]*\\[ *[0-9]+\\]) ([^+].*)$")
    string(REGEX REPLACE "\\(.*|\\[abi:.*" "" name "${CMAKE_MATCH_2}")
    # What every class of the interface has besides its members.
    if(NOT name MATCHES "^(vtable|typeinfo|typeinfo name) for C[A-Za-z]+$")
      list(APPEND exported "${name}")
    endif()
  endif()
endforeach()
list(REMOVE_DUPLICATES exported)
list(SORT exported)

file(STRINGS ${LIST} expected)
set(missing ${expected})
list(REMOVE_ITEM missing ${exported})
set(surplus ${exported})
list(REMOVE_ITEM surplus ${expected})
if(missing OR surplus OR NOT exported)
  list(JOIN missing "\n  " missing)
  list(JOIN surplus "\n  " surplus)
  message(FATAL_ERROR "${LIBRARY} does not export the interface.\nMissing:\n  ${missing}\nToo much:\n  ${surplus}")
endif()
