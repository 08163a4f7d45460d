# What `cmake --install` puts where. Its components are the packages: library, development, host, cluster, console.

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

# What every package says about itself, below the name that the package has.
set(TARVEX_MAINTAINER "No maintainer yet <nobody@example.org>" CACHE STRING "Who answers for the packages")
set(documents ${CMAKE_INSTALL_DATADIR}/doc)
set(tarvex_abi 0)
find_program(GZIP gzip REQUIRED)
configure_file(packaging/debian/changelog ${PROJECT_BINARY_DIR}/packaging/changelog @ONLY)
execute_process(COMMAND ${GZIP} -9nkf ${PROJECT_BINARY_DIR}/packaging/changelog COMMAND_ERROR_IS_FATAL ANY)
set(component_packages library:libtarvex${tarvex_abi} development:libtarvex-dev host:tarvex cluster:tarvex-cluster)
if(TARVEX_CONSOLE)
  list(APPEND component_packages console:tarvex-console)
  set(console_page console:tarvex-console.1)
endif()
foreach(component_package IN LISTS component_packages)
  string(REPLACE ":" ";" component_package ${component_package})
  list(GET component_package 0 component)
  list(GET component_package 1 package)
  install(FILES packaging/debian/copyright ${PROJECT_BINARY_DIR}/packaging/changelog.gz
    DESTINATION ${documents}/${package} COMPONENT ${component})
endforeach()
install(FILES packaging/debian/library.lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  RENAME libtarvex${tarvex_abi} COMPONENT library)
install(DIRECTORY examples DESTINATION ${documents}/libtarvex-dev COMPONENT development)
include(cmake/Documents.cmake)

install(DIRECTORY packaging/prometheus packaging/kubernetes DESTINATION ${documents}/tarvex COMPONENT host)
install(FILES packaging/provider.def DESTINATION ${documents}/tarvex/examples COMPONENT host)

# What the command reads: beside the program, so that an installed tree can be moved.
install(FILES packaging/mail-servers DESTINATION ${CMAKE_INSTALL_DATADIR}/tarvex COMPONENT host)

# The manual, in English and in Japanese. Its lists of keys are made from the host's own tables.
add_executable(tarvex_manual packaging/manual.cpp)
target_link_libraries(tarvex_manual PRIVATE tarvex_host_parts tarvex)
set(pages "")
foreach(page host:tarvex.1 host:tarvex.def.5 development:libtarvex.3 ${console_page})
  string(REPLACE ":" ";" page ${page})
  list(POP_FRONT page component)
  string(REGEX MATCH "[0-9]$" section ${page})
  foreach(language "" ja)
    set(source docs/man/${language}/${page})
    set(keys "")
    if(language AND page STREQUAL tarvex.def.5)
      set(keys ${PROJECT_SOURCE_DIR}/docs/man/${language}/keys.txt)
    endif()
    set(output ${PROJECT_BINARY_DIR}/man/${language}/${page})
    add_custom_command(OUTPUT ${output} ${output}.gz
      COMMAND tarvex_manual ${PROJECT_SOURCE_DIR}/${source} ${output} ${keys}
      COMMAND ${GZIP} -9nkf ${output}
      DEPENDS tarvex_manual ${source} ${keys})
    list(APPEND pages ${output}.gz)
    install(FILES ${output}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/${language}/man${section} COMPONENT ${component})
  endforeach()
endforeach()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man/ja)
add_custom_target(manual ALL DEPENDS ${pages})

install(FILES packaging/tarvex.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME tarvex
  COMPONENT host)
install(FILES packaging/tarvex.zsh DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions RENAME _tarvex COMPONENT host)
install(FILES packaging/tarvex.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT host)

# The units of the service manager; what both have in common stands in a file of its own.
file(READ packaging/systemd/common common)
string(STRIP "${common}" common)
foreach(unit tarvex.service tarvex@.service)
  configure_file(packaging/systemd/${unit} ${PROJECT_BINARY_DIR}/packaging/${unit} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/${unit} DESTINATION lib/systemd/system COMPONENT host)
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/systemd/common)
install(FILES packaging/systemd/tarvex.sysusers DESTINATION lib/sysusers.d RENAME tarvex.conf COMPONENT host)

# The web console.
if(TARVEX_CONSOLE)
  install(TARGETS tarvex_console COMPONENT console)
  install(FILES packaging/systemd/tarvex-console.service DESTINATION lib/systemd/system COMPONENT console)
  install(FILES packaging/systemd/tarvex-console.sysusers DESTINATION lib/sysusers.d RENAME tarvex-console.conf COMPONENT console)
  install(FILES packaging/systemd/tarvex-console.tmpfiles DESTINATION lib/tmpfiles.d RENAME tarvex-console.conf COMPONENT console)
  install(FILES packaging/systemd/desk.conf DESTINATION lib/systemd/system/tarvex.service.d COMPONENT console)
  install(FILES packaging/console/nginx.conf packaging/console/Caddyfile packaging/console/tcp.conf DESTINATION ${documents}/tarvex-console/examples
    COMPONENT console)
  install(FILES packaging/tarvex-console.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME tarvex-console COMPONENT console)
  install(FILES packaging/tarvex-console.zsh DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions
    RENAME _tarvex-console COMPONENT console)
  install(FILES packaging/tarvex-console.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT console)
endif()

# The resource agent of Pacemaker.
install(PROGRAMS packaging/cluster/root DESTINATION lib/ocf/resource.d/tarvex COMPONENT cluster)
install(DIRECTORY packaging/cluster/examples DESTINATION ${documents}/tarvex-cluster COMPONENT cluster)

include(cmake/Package.cmake)
