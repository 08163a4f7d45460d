# Checks that the rooms include only what they may: run as  cmake -DROOT=<source folder> -P CheckArrows.cmake
# The arrows run one way; a room is its folder. Includes in quotes are the project's own, from its root or from include/.

cmake_minimum_required(VERSION 3.25)

set(may_include_include   "include")
set(may_include_engine    "engine;include;platform")
set(may_include_store     "store;include;platform")
set(may_include_transfer  "transfer;include;platform")
set(may_include_rewrite   "rewrite;include;platform")
set(may_include_platform  "platform")
set(may_include_loopback  "loopback")
set(may_include_testing   "testing;loopback")

# The host's folders are rooms of their own: each may include itself and those before it in this list.
set(open "include")
foreach(folder language system dns terminal settings advice tree receivers tunnels tokens ways setup saving generation edit history memory trace held rules state alerts metrics import backup service/log service view desk commands)
  list(APPEND open "host/${folder}")
  set(may_include_host/${folder} "${open}")
endforeach()
set(may_include_host/commands/demo "${open};host/commands/demo;loopback")
set(may_include_host "${open};host/commands/demo")  # main.cpp

# The web console: of the host only what it says texts with and what it asks of the system.
set(open "host/language;host/system;console/http")
set(may_include_console/http "${open}")
set(may_include_console/desk "${open};console/desk")
set(may_include_console/pages "${open};console/pages")
set(may_include_console "${open};console/desk;console/pages;console")

# The room of a path: the longest beginning that has a line above.
function(find_room path result)
  string(REGEX REPLACE "^tarvex/" "include/tarvex/" room ${path})
  while(room MATCHES "/" AND NOT DEFINED may_include_${room})
    string(REGEX REPLACE "/[^/]*$" "" room ${room})
  endwhile()
  set(${result} ${room} PARENT_SCOPE)
endfunction()

set(violations "")
foreach(folder include engine store transfer rewrite platform loopback testing host console)
  file(GLOB_RECURSE files RELATIVE ${ROOT} ${ROOT}/${folder}/*.h ${ROOT}/${folder}/*.cpp)
  foreach(file IN LISTS files)
    find_room(${file} room)
    file(STRINGS ${ROOT}/${file} lines REGEX "^[ \t]*#[ \t]*(include[ \t]*[\"<]|if)")
    foreach(line IN LISTS lines)
      if(line MATCHES "^[ \t]*#[ \t]*include[ \t]*\"([^\"]+)\"")
        set(path ${CMAKE_MATCH_1})
        find_room(${path} target)
        if(NOT path MATCHES "/" OR NOT target IN_LIST may_include_${room})
          list(APPEND violations "${file}: ${room} may not include \"${path}\"")
        elseif(path MATCHES "/(posix|windows)/" AND NOT file MATCHES "/(posix|windows)/")
          list(APPEND violations "${file}: only an implementation may include \"${path}\"")
        endif()
      elseif(line MATCHES "#[ \t]*include[ \t]*<(sys/|unistd|netinet|netdb|poll\\.h|arpa/|windows\\.h|winsock|openssl/)"
             AND NOT folder MATCHES "^(platform|loopback|testing|host|console)$")
        list(APPEND violations "${file}: only platform/ may reach the operating system: ${line}")
      elseif(line MATCHES "^[ \t]*#[ \t]*if" AND NOT file MATCHES "^include/tarvex/(text|tarvex_c)\\.h$")
        list(APPEND violations "${file}: no #if; systems differ in posix/ and windows/ alone")
      endif()
    endforeach()
  endforeach()
endforeach()

if(violations)
  list(JOIN violations "\n  " text)
  message(FATAL_ERROR "The arrows between the rooms are broken:\n  ${text}")
endif()
