# What CPack makes for Windows: a zip for developers and an installer for users. In both are the library, its import library,
# the headers, the host, the web console, a README, documents, and the licences of what is linked in; whoever installs chooses
# whether to have the components development and console.

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME host)

set(licences
  ${TARVEX_WINDOWS_PARTS}/openssl/LICENSE.txt                  OpenSSL
  /usr/share/doc/gcc-mingw-w64-base/copyright                  GCC-runtime
  /usr/share/doc/mingw-w64-common/copyright                    mingw-w64
  /usr/share/doc/libasio-dev/copyright                         Asio
  /usr/share/doc/libcli11-dev/copyright                        CLI11
  /usr/share/doc/nlohmann-json3-dev/copyright                  nlohmann-json
  /usr/share/doc/libsqlite3-dev/copyright                      SQLite
  /usr/share/doc/libboost1.74-dev/copyright                    Boost
  ${TARVEX_WINDOWS_PARTS}/qrencode/COPYING                     libqrencode)
while(licences)
  list(POP_FRONT licences file name)
  install(FILES ${file} DESTINATION licences RENAME ${name}.txt)
endwhile()
install(FILES packaging/Tarvex.def DESTINATION lib COMPONENT development)
if(TARVEX_CONSOLE)
  install(TARGETS tarvex_console COMPONENT console)
  install(FILES ${qrencode} DESTINATION bin COMPONENT console)
endif()
install(FILES packaging/mail-servers DESTINATION share/tarvex)
configure_file(docs/windows.md ${PROJECT_BINARY_DIR}/packaging/README.txt @ONLY NEWLINE_STYLE CRLF)
install(FILES ${PROJECT_BINARY_DIR}/packaging/README.txt DESTINATION .)
foreach(document alerts console deliverability files forwarding host network setup stunnel text-mail tls tokens)
  install(FILES docs/${document}.md DESTINATION docs)
endforeach()

set(CPACK_GENERATOR ZIP NSIS)
set(CPACK_MODULE_PATH ${PROJECT_SOURCE_DIR}/packaging/windows)  # our NSIS.template.in
set(CPACK_COMPONENTS_ALL host development console)
set(CPACK_PACKAGE_VENDOR "The Tarvex project")
set(CPACK_PACKAGE_FILE_NAME tarvex-${PROJECT_VERSION}-win32)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_VERBATIM_VARIABLES TRUE)
include(CPack)
