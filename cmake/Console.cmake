# The web console, a program of its own: pages, and the HTTP server. The service decides; of the host's parts the console
# uses a few that need no other library, and so links only the archive.

# Boost, headers: Beast parses HTTP, Asio waits for sockets. libqrencode: the key of an authenticator as a picture.
if(WIN32)
  set(Boost_INCLUDE_DIRS ${TARVEX_WINDOWS_PARTS}/headers)
  set(QRENCODE_INCLUDE_DIR ${TARVEX_WINDOWS_PARTS}/qrencode/include)
  set(QRENCODE_LIBRARY ${TARVEX_WINDOWS_PARTS}/qrencode/lib/libqrencode.dll.a)
  set(qrencode ${TARVEX_WINDOWS_PARTS}/qrencode/bin/qrencode.dll)
  configure_file(${qrencode} ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/qrencode.dll COPYONLY)  # beside the program
  set(of_windows tarvex crypt32 mswsock ws2_32)  # paths and texts are shown by help of the library there
else()
  find_package(Boost 1.74 REQUIRED)
  find_path(QRENCODE_INCLUDE_DIR qrencode.h REQUIRED)
  find_library(QRENCODE_LIBRARY qrencode REQUIRED)
  mark_as_advanced(QRENCODE_INCLUDE_DIR QRENCODE_LIBRARY)
endif()

set(static_data ${PROJECT_BINARY_DIR}/console/static_data.cpp)
file(GLOB static_files CONFIGURE_DEPENDS console/static/*)
add_custom_command(OUTPUT ${static_data}
  COMMAND ${CMAKE_COMMAND} -DFOLDER=${PROJECT_SOURCE_DIR}/console/static -DOUTPUT=${static_data}
    -P ${PROJECT_SOURCE_DIR}/cmake/EmbedFiles.cmake
  DEPENDS ${static_files} cmake/EmbedFiles.cmake)

file(GLOB console_sources CONFIGURE_DEPENDS console/*.cpp console/${system}/*.cpp console/desk/*.cpp console/desk/${system}/*.cpp
  console/http/*.cpp console/pages/*.cpp console/pages/*/*.cpp)
list(FILTER console_sources EXCLUDE REGEX "console/main\\.cpp$")
add_library(tarvex_console_parts STATIC ${console_sources} ${static_data})  # the tests reach inside
add_dependencies(tarvex_console_parts arrows tarvex_host_parts)
target_include_directories(tarvex_console_parts PUBLIC . include)
target_include_directories(tarvex_console_parts SYSTEM PRIVATE ${Boost_INCLUDE_DIRS} ${QRENCODE_INCLUDE_DIR})
target_link_libraries(tarvex_console_parts
  PUBLIC CLI11::CLI11 nlohmann_json::nlohmann_json $<TARGET_FILE:tarvex_host_parts>
  PRIVATE OpenSSL::SSL OpenSSL::Crypto Threads::Threads ${QRENCODE_LIBRARY} ${of_windows})
target_compile_definitions(tarvex_console_parts PRIVATE BOOST_ERROR_CODE_HEADER_ONLY BOOST_ASIO_NO_DEPRECATED
  $<$<PLATFORM_ID:Windows>:_POSIX_THREAD_SAFE_FUNCTIONS BOOST_SYSTEM_USE_UTF8>)  # gmtime_r; what the system says
if(TARVEX_SANITIZE STREQUAL "thread")
  target_compile_options(tarvex_console_parts PRIVATE -Wno-tsan)  # Asio's fences, which ThreadSanitizer does not see
endif()

add_executable(tarvex_console console/main.cpp)
set_target_properties(tarvex_console PROPERTIES OUTPUT_NAME tarvex-console)
target_compile_definitions(tarvex_console PRIVATE TARVEX_VERSION="${PROJECT_VERSION}")
target_link_libraries(tarvex_console PRIVATE tarvex_console_parts)
add_dependencies(tarvex_console catalogues)
