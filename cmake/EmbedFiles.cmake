# Writes the C++ file that holds the console's static files: run as
#   cmake -DFOLDER=console/static -DOUTPUT=static_data.cpp -P EmbedFiles.cmake
# The name that a file is served by holds a digest of its bytes.

cmake_minimum_required(VERSION 3.25)

set(type_css "text/css; charset=utf-8")
set(type_js "text/javascript; charset=utf-8")
set(type_svg "image/svg+xml")

set(arrays "")
set(rows "")
file(GLOB files RELATIVE ${FOLDER} ${FOLDER}/*)
list(SORT files)
foreach(file IN LISTS files)
  string(REGEX MATCH "^([a-z]+)\\.([a-z]+)$" name ${file})
  set(stem ${CMAKE_MATCH_1})
  set(ending ${CMAKE_MATCH_2})
  if(NOT DEFINED type_${ending})
    message(FATAL_ERROR "${FOLDER}/${file}: of an unknown type")
  endif()
  file(SHA256 ${FOLDER}/${file} digest)
  string(SUBSTRING ${digest} 0 12 digest)
  file(READ ${FOLDER}/${file} bytes HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND arrays "constexpr char k_${stem}_${ending}[] = {${bytes}};\n")
  string(APPEND rows "    StaticFile{\"${file}\", \"${stem}-${digest}.${ending}\", \"${type_${ending}}\", {k_${stem}_${ending}, sizeof k_${stem}_${ending}}},\n")
endforeach()

file(WRITE ${OUTPUT} "// Made from ${FOLDER} by EmbedFiles.cmake.

#include <array>

#include \"console/pages/static_files.h\"

namespace tarvex::console {
namespace {

${arrays}
constexpr std::array kFiles{
${rows}};

}  // namespace

std::span<const StaticFile> StaticFiles() { return kFiles; }

}  // namespace tarvex::console
")
