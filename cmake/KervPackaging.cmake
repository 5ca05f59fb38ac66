# Service files and Debian packages. Three packages come from one build:
#   kervd        the daemon, its libraries, kervctl, the configuration-store stand-in,
#                the example plug-in, the systemd unit and the sample store
#   kervd-dev    headers, pkg-config files, link names and the example plug-in's source
#   kervd-tools  development tools: the modem-daemon stand-in
# Build them with `cpack -G DEB` in a build configured with CMAKE_INSTALL_PREFIX=/usr
# (`make package`), so that the plug-in directory and the unit take their system places.

# The unit names the installed programs; rewritten for another prefix.
file(READ ${PROJECT_SOURCE_DIR}/packaging/kervd.service kerv_unit)
string(REPLACE "/usr/sbin/kervd" "${CMAKE_INSTALL_FULL_SBINDIR}/kervd" kerv_unit "${kerv_unit}")
string(REPLACE "/usr/bin/kervctl" "${CMAKE_INSTALL_FULL_BINDIR}/kervctl" kerv_unit "${kerv_unit}")
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/packaging/kervd.service CONTENT "${kerv_unit}" @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/packaging/kervd.service
  DESTINATION ${KERV_SYSTEMD_UNIT_DIR} COMPONENT Runtime)
install(FILES packaging/sncfg.conf.sample
  DESTINATION ${CMAKE_INSTALL_DATADIR}/kerv COMPONENT Runtime)

# Debian's name for the target architecture (armhf for arm-linux-gnueabihf), from the
# target's multiarch name; dpkg-architecture knows them all, the table the usual ones.
set(kerv_deb_arch_of_x86_64-linux-gnu amd64)
set(kerv_deb_arch_of_arm-linux-gnueabihf armhf)
set(kerv_deb_arch_of_aarch64-linux-gnu arm64)
if(CMAKE_LIBRARY_ARCHITECTURE)
  execute_process(COMMAND dpkg-architecture -q DEB_HOST_ARCH -t ${CMAKE_LIBRARY_ARCHITECTURE}
    OUTPUT_VARIABLE kerv_deb_arch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT kerv_deb_arch)
    set(kerv_deb_arch ${kerv_deb_arch_of_${CMAKE_LIBRARY_ARCHITECTURE}})
  endif()
endif()
if(NOT kerv_deb_arch AND NOT CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg --print-architecture
    OUTPUT_VARIABLE kerv_deb_arch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()

# Packaging takes what the build made: cpack (also inside the package test) installs
# without building again; `make package` builds first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kervd)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "kervd maintainers <kervd@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "AT-command proxy daemon for boards with two cellular modems")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Runtime Development Tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${kerv_deb_arch})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# What the programs need of the system: the C and C++ run-time libraries of the
# toolchain (Debian 12, GCC 12), for amd64 and armhf alike.
set(kerv_system_depends "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME kervd)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION net)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${kerv_system_depends}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME kervd-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "pkg-config")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kervd-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${kerv_system_depends}")

include(CPack)
cpack_add_component(Runtime DISPLAY_NAME "kervd"
  DESCRIPTION "The daemon, kervctl, the example plug-in and the service files")
cpack_add_component(Development DISPLAY_NAME "kervd SDK" DEPENDS Runtime
  DESCRIPTION "Headers and pkg-config files for validator plug-ins and control clients")
cpack_add_component(Tools DISPLAY_NAME "kervd development tools"
  DESCRIPTION "The modem-daemon stand-in for running kervd without modems")

# Libraries find the project's other libraries next to themselves.
set_target_properties(kervutil kervrequest PROPERTIES INSTALL_RPATH "\$ORIGIN")
set_target_properties(sncfg PROPERTIES INSTALL_RPATH "")
