# The documents as they are installed, in one folder, where their links have to lead: README.md stands beside what is in
# docs/ here, and what is not installed is no link.

set(documents_source ${PROJECT_BINARY_DIR}/documents)
file(REMOVE_RECURSE ${documents_source})
file(GLOB readmes RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS README*.md)
file(GLOB_RECURSE names RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS docs/*.md)
foreach(name IN LISTS readmes names)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${name})
  file(READ ${name} text)
  string(REGEX REPLACE "\\[([^]]*)\\]\\((\\.\\./)?(host|CONTRIBUTING\\.md|SECURITY\\.md|CHANGELOG\\.md)\\)" "\\1" text "${text}")
  string(REGEX REPLACE "\\]\\((\\.\\./)?include/" "](../../../include/" text "${text}")
  string(REGEX REPLACE "\\]\\((\\.\\./)?examples" "](../libtarvex-dev/examples" text "${text}")
  string(REGEX REPLACE "(\\[|\\]\\()docs/" "\\1" text "${text}")
  string(REGEX REPLACE "^docs/" "" installed_name ${name})
  file(WRITE ${documents_source}/${installed_name} "${text}")
endforeach()
install(DIRECTORY ${documents_source}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tarvex COMPONENT host)
install(DIRECTORY docs/images DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tarvex COMPONENT host)
