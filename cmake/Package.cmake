# The Debian packages: liblanscout1, liblanscout-dev, lanscout and lanscout-sim, one a component.
# scripts/package builds them.
set(lanscout_soname_package liblanscout${PROJECT_VERSION_MAJOR})
set(lanscout_deb_version ${PROJECT_VERSION}-1)

# Who builds packages to hand them on sets these two, as for every other Debian package.
set(lanscout_maintainer "the lanscout developers <lanscout@localhost>")
if(DEFINED ENV{DEBFULLNAME} AND DEFINED ENV{DEBEMAIL})
  set(lanscout_maintainer "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
endif()

# Every Debian package carries its licence, its changes and its lintian overrides. They are left out
# of a plain cmake --install, which takes the licence alone.
install(FILES LICENSE COMPONENT licence DESTINATION ${CMAKE_INSTALL_DOCDIR})
string(TIMESTAMP lanscout_deb_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(cmake/debian/changelog.in debian/changelog @ONLY)
find_program(GZIP gzip REQUIRED)
execute_process(COMMAND ${GZIP} -9nc ${PROJECT_BINARY_DIR}/debian/changelog
  OUTPUT_FILE ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${GZIP} -9nc ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  OUTPUT_FILE ${PROJECT_BINARY_DIR}/debian/changelog.gz COMMAND_ERROR_IS_FATAL ANY)

function(lanscout_package component name)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright
                ${PROJECT_BINARY_DIR}/debian/changelog.gz
                ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz
    COMPONENT ${component} EXCLUDE_FROM_ALL DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name})
  set(overrides ${PROJECT_SOURCE_DIR}/cmake/debian/${component}.lintian-overrides)
  if(EXISTS ${overrides})
    install(FILES ${overrides} COMPONENT ${component} EXCLUDE_FROM_ALL RENAME ${name}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides)
  endif()
endfunction()
lanscout_package(runtime ${lanscout_soname_package})
lanscout_package(development liblanscout-dev)
lanscout_package(tools lanscout)
lanscout_package(simulator lanscout-sim)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lanscout)
set(CPACK_PACKAGE_VENDOR "the lanscout developers")
set(CPACK_PACKAGE_CONTACT ${lanscout_maintainer})
# Each component has a summary of its own, the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime development tools simulator)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tools' own library is not installed while dpkg-shlibdeps looks for it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/host/standalone)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${lanscout_soname_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS iputils-arping)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"search for IP cameras and UPnP devices - shared library
Searches one local IPv4 network for ONVIF devices with WS-Discovery and for
UPnP root devices with SSDP, in a thread of its own, and lists address, port,
hardware name and MAC address of each device while they answer.

This package has the shared libraries.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liblanscout-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${lanscout_soname_package} (= ${lanscout_deb_version}), libupnp-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"search for IP cameras and UPnP devices - development files
Searches one local IPv4 network for ONVIF devices with WS-Discovery and for
UPnP root devices with SSDP, in a thread of its own, and lists address, port,
hardware name and MAC address of each device while they answer.

This package has the headers, and the files by which CMake and pkg-config find
the library.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME lanscout)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${lanscout_soname_package} (= ${lanscout_deb_version})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "iputils-arping, ieee-data")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS lanscout-sim)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"search for IP cameras and UPnP devices - command-line tool
lanscout searches all local IPv4 networks for ONVIF cameras and UPnP devices
and prints a table of them, or JSON, CSV or an HTML page.")

set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME lanscout-sim)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION net)
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION
"network of simulated IP cameras and UPnP devices
Up to thousands of ONVIF cameras and UPnP devices in one process, for tests of
programs that search for them. They speak WS-Discovery, SSDP, ARP and HTTP as
real devices do, each at its own address in a network namespace, or at loopback
addresses without privileges. Losses, delays and misbehaviour are had on
request, and a seed repeats a run.")
include(CPack)
