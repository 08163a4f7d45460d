# Checks that every .cpp opens with what it is for: run as  cmake -DROOT=<source folder> -P CheckOpenings.cmake

cmake_minimum_required(VERSION 3.25)

set(silent "")
foreach(folder engine store transfer rewrite platform host console loopback testing tests fuzz bench packaging examples)
  file(GLOB_RECURSE files RELATIVE ${ROOT} ${ROOT}/${folder}/*.cpp)
  foreach(file IN LISTS files)
    file(READ ${ROOT}/${file} beginning LIMIT 4)
    if(NOT beginning MATCHES "^// [^ ]")
      list(APPEND silent ${file})
    endif()
  endforeach()
endforeach()
if(silent)
  list(JOIN silent "\n  " text)
  message(FATAL_ERROR "These files do not open with a comment that says what they are for:\n  ${text}")
endif()
