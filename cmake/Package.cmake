# The Debian packages: cpack --config <build folder>/CPackConfig.cmake -B <folder>

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tarvex)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${TARVEX_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # the first line of each package's own description is it
set(CPACK_COMPONENTS_ALL library development host cluster)
if(TARVEX_CONSOLE)
  list(APPEND CPACK_COMPONENTS_ALL console)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(library_name libtarvex${tarvex_abi})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_name})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "mail-forwarding engine - shared library
Tarvex fetches mail from POP3 mailboxes and sends every new message on, over
SMTP, to one or more forwarding addresses, each with a schedule of its own.

This package holds the engine.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtarvex-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_name} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "mail-forwarding engine - development files
Tarvex fetches mail from POP3 mailboxes and sends every new message on, over
SMTP, to one or more forwarding addresses, each with a schedule of its own.

This package holds what a program needs that is built on the engine: the
headers, a CMake package, a pkg-config file and an example.")

set(CPACK_DEBIAN_HOST_PACKAGE_NAME tarvex)
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION mail)
set(CPACK_DEBIAN_HOST_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS
  "${library_name} (= ${PROJECT_VERSION}), systemd | systemd-standalone-sysusers | systemd-sysusers")
set(CPACK_DEBIAN_HOST_PACKAGE_RECOMMENDS ca-certificates)
set(CPACK_DEBIAN_HOST_PACKAGE_SUGGESTS stunnel4)
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
  ${PROJECT_SOURCE_DIR}/packaging/debian/prerm
  ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_COMPONENT_HOST_DESCRIPTION "mail-forwarding engine - command and service
Tarvex fetches mail from POP3 mailboxes and sends every new message on, over
SMTP, to one or more forwarding addresses, each with a schedule of its own.

This package holds the command tarvex and the units of its service.")

set(CPACK_DEBIAN_CLUSTER_PACKAGE_NAME tarvex-cluster)
set(CPACK_DEBIAN_CLUSTER_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_CLUSTER_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_CLUSTER_PACKAGE_DEPENDS "tarvex (= ${PROJECT_VERSION}), resource-agents, pacemaker-cli-utils")
set(CPACK_DEBIAN_CLUSTER_PACKAGE_RECOMMENDS pacemaker)
set(CPACK_DEBIAN_CLUSTER_PACKAGE_SUGGESTS "crmsh | pcs, drbd-utils, sbd")
set(CPACK_COMPONENT_CLUSTER_DESCRIPTION "mail-forwarding engine - resource agent for clusters
Tarvex fetches mail from POP3 mailboxes and sends every new message on, over
SMTP, to one or more forwarding addresses, each with a schedule of its own.

This package holds the agent ocf:tarvex:root, by which Pacemaker serves a data
tree on one machine of a cluster and moves it to another when that is lost,
and examples for crmsh and pcs.")

set(CPACK_DEBIAN_CONSOLE_PACKAGE_NAME tarvex-console)
set(CPACK_DEBIAN_CONSOLE_PACKAGE_SECTION mail)
set(CPACK_DEBIAN_CONSOLE_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_CONSOLE_PACKAGE_DEPENDS
  "tarvex (= ${PROJECT_VERSION}), systemd | systemd-standalone-sysusers | systemd-sysusers")
set(CPACK_DEBIAN_CONSOLE_PACKAGE_RECOMMENDS "nginx | httpd")
set(CPACK_DEBIAN_CONSOLE_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/packaging/debian/console/postinst
  ${PROJECT_SOURCE_DIR}/packaging/debian/console/prerm
  ${PROJECT_SOURCE_DIR}/packaging/debian/console/postrm)
set(CPACK_COMPONENT_CONSOLE_DESCRIPTION "mail-forwarding engine - web console
Tarvex fetches mail from POP3 mailboxes and sends every new message on, over
SMTP, to one or more forwarding addresses, each with a schedule of its own.

This package holds the web console for the users and administrators of a
service: the program tarvex-console and its unit, under a user of its own
that cannot read any data tree.")

include(CPack)
