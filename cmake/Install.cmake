# What `cmake --install` puts where. Its components are the packages: library, development, host.

# Where Debian keeps the libraries of one architecture, also below /usr/local.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Libraries")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS tarvex EXPORT TarvexTargets
  RUNTIME COMPONENT library
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
install(DIRECTORY include/tarvex DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(TARGETS tarvex_host COMPONENT host)

# find_package(Tarvex)
set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Tarvex)
install(EXPORT TarvexTargets NAMESPACE Tarvex:: DESTINATION ${config_folder} COMPONENT development)
configure_package_config_file(packaging/TarvexConfig.cmake.in ${PROJECT_BINARY_DIR}/packaging/TarvexConfig.cmake
  INSTALL_DESTINATION ${config_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/packaging/TarvexConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/packaging/TarvexConfig.cmake ${PROJECT_BINARY_DIR}/packaging/TarvexConfigVersion.cmake
  DESTINATION ${config_folder} COMPONENT development)

# pkg-config; the prefix is found from the place of the file, so that an installed tree can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")
configure_file(packaging/tarvex.pc.in ${PROJECT_BINARY_DIR}/packaging/tarvex.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/tarvex.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libtarvex-dev/examples COMPONENT development)
