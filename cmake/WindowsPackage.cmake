# The zip for Windows developers and users, made by CPack: the library, its import library, the headers, the host, a README,
# documents, and the licences of what is linked in.

set(licences
  ${TARVEX_WINDOWS_PARTS}/openssl/LICENSE.txt                  OpenSSL
  /usr/share/doc/gcc-mingw-w64-base/copyright                  GCC-runtime
  /usr/share/doc/mingw-w64-common/copyright                    mingw-w64
  /usr/share/doc/libasio-dev/copyright                         Asio
  /usr/share/doc/libcli11-dev/copyright                        CLI11
  /usr/share/doc/nlohmann-json3-dev/copyright                  nlohmann-json
  /usr/share/doc/libsqlite3-dev/copyright                      SQLite)
while(licences)
  list(POP_FRONT licences file name)
  install(FILES ${file} DESTINATION licences RENAME ${name}.txt)
endwhile()
install(FILES packaging/Tarvex.def DESTINATION lib)
install(FILES packaging/mail-servers DESTINATION share/tarvex)
configure_file(docs/windows.md ${PROJECT_BINARY_DIR}/packaging/README.txt @ONLY NEWLINE_STYLE CRLF)
install(FILES ${PROJECT_BINARY_DIR}/packaging/README.txt DESTINATION .)
foreach(document alerts deliverability files forwarding host network setup stunnel text-mail tls tokens)
  install(FILES docs/${document}.md DESTINATION docs)
endforeach()

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME tarvex-${PROJECT_VERSION}-win32)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_VERBATIM_VARIABLES TRUE)
include(CPack)
