# Service files, manual pages and Debian packages. Three packages come from one build:
#   kervd        the daemon, its libraries, kervctl, the configuration-store stand-in,
#                the example plug-in, the systemd unit and the sample store
#   kervd-dev    headers, pkg-config files, link names and the example plug-in's source
#   kervd-tools  development tools: the modem-daemon stand-in
# and, from the programs' and libraries' debug information, kervd-dbgsym and
# kervd-tools-dbgsym. Build them with `cpack -G DEB` in a build configured with
# CMAKE_INSTALL_PREFIX=/usr (`make package`), so that the plug-in directory and the unit
# take their system places.
#
# The packages are made by CPack from the very build that the tests ran (amd64, and armhf
# from the cross build under qemu-arm) rather than by dpkg-buildpackage: that would build
# everything once more per architecture in a tree of its own, and its armhf build would need
# the armhf C library and dpkg's database of it (a multiarch system) instead of the cross
# toolchain alone. What debhelper would add is added here the same way: binaries stripped
# with their debug information in -dbgsym packages, shlibs and the ldconfig trigger for the
# shared libraries, the maintainer scripts that dh_installsystemd writes for the unit, a
# machine-readable copyright file, the Debian changelog and compressed manual pages
# (packaging/deb/). lintian checks the result (packaging/tests/check_package.sh).

# Files made for the packages: gzip -n keeps no name or time, so they build reproducibly.
# kerv_gzip(<source> <output.gz>) adds the rule; the outputs are built with the project.
find_program(KERV_GZIP gzip REQUIRED)
set(kerv_gzipped)
function(kerv_gzip source output)
  get_filename_component(plain ${output} NAME_WLE)
  get_filename_component(dir ${output} DIRECTORY)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${dir}
    COMMAND ${CMAKE_COMMAND} -E copy ${source} ${dir}/${plain}
    COMMAND ${KERV_GZIP} -9nf ${dir}/${plain}
    DEPENDS ${source} VERBATIM)
  set(kerv_gzipped ${kerv_gzipped} ${output} PARENT_SCOPE)
endfunction()

# Manual pages.
set(kerv_man_dir ${CMAKE_BINARY_DIR}/man)
foreach(page kervd.8 kervctl.1 modemd-sim.1)
  kerv_gzip(${PROJECT_SOURCE_DIR}/docs/man/${page} ${kerv_man_dir}/${page}.gz)
endforeach()
install(FILES ${kerv_man_dir}/kervd.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8
  COMPONENT Runtime)
install(FILES ${kerv_man_dir}/kervctl.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
  COMPONENT Runtime)
install(FILES ${kerv_man_dir}/modemd-sim.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
  COMPONENT Tools)

# Each package's /usr/share/doc/<package>: the copyright file and the Debian changelog;
# and its lintian overrides.
# The changelog's first entry gives the packages' version: the project's version and a
# Debian revision.
set(kerv_deb_dir ${PROJECT_SOURCE_DIR}/packaging/deb)
file(STRINGS ${kerv_deb_dir}/changelog kerv_changelog_top LIMIT_COUNT 1)
if(NOT kerv_changelog_top MATCHES "^kervd \\(${PROJECT_VERSION}-([0-9]+)\\) ")
  message(FATAL_ERROR "packaging/deb/changelog: the first entry is not version "
    "${PROJECT_VERSION}-<revision>: '${kerv_changelog_top}'")
endif()
set(kerv_deb_revision ${CMAKE_MATCH_1})
kerv_gzip(${kerv_deb_dir}/changelog ${CMAKE_BINARY_DIR}/packaging/changelog.Debian.gz)
foreach(component_package Runtime:kervd Development:kervd-dev Tools:kervd-tools)
  string(REPLACE ":" ";" component_package ${component_package})
  list(GET component_package 0 component)
  list(GET component_package 1 package)
  install(FILES ${kerv_deb_dir}/copyright ${CMAKE_BINARY_DIR}/packaging/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
  # lintian's overrides, each with the reason written above it.
  install(FILES ${kerv_deb_dir}/${package}.lintian-overrides
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${package}
    COMPONENT ${component})
endforeach()
add_custom_target(kerv_package_files ALL DEPENDS ${kerv_gzipped})

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
set(KERV_PACKAGE_MAINTAINER "kervd maintainers <kervd@kervlab.example>" CACHE STRING
  "Maintainer field of the Debian packages")
set(CPACK_PACKAGE_CONTACT "${KERV_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Runtime Development Tools)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${kerv_deb_revision})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Stripped programs and libraries; their debug information goes to <package>-dbgsym, found
# by build id (/usr/lib/debug/.build-id). The target's own binutils do the splitting.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
set(CPACK_POST_BUILD_SCRIPTS ${kerv_deb_dir}/dbgsym.cmake)
# shlibs for the two shared libraries: a program built against this version needs at least
# this version. The ldconfig trigger is in kervd's control files.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${kerv_deb_arch})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# What the programs need of the system: the C and C++ run-time libraries of the
# toolchain (Debian 12, GCC 12), for amd64 and armhf alike.
set(kerv_system_depends "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME kervd)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION net)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${kerv_system_depends}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${kerv_deb_dir}/postinst ${kerv_deb_dir}/prerm ${kerv_deb_dir}/postrm ${kerv_deb_dir}/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME kervd-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "pkg-config")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kervd-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${kerv_system_depends}")

# Each package's description: a synopsis line, then the long text.
# Each package's description: a synopsis line, then the long text (lines of at most 79
# characters once indented).
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "AT-command proxy daemon for boards with two cellular modems
kervd serves AT command lines from a host on the board's USB gadget serial
port or on a TCP port. It answers echo, result-code format and the choice of
modem itself, hands extended commands to validator plug-ins, relays the rest
to the modem daemon and passes the answers back unchanged; unsolicited result
codes are forwarded to the host. This package holds the daemon, its libraries,
the control client kervctl, the configuration-store stand-in, the example
plug-in and the systemd unit.")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "kervd SDK: headers for validator plug-ins and control clients
Headers, pkg-config files (kervutil, kervrequest) and link names for building
validator plug-ins that kervd loads and local applications that talk to kervd
over its control socket; with the example plug-in's source.")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "kervd development tools: the modem-daemon stand-in
modemd-sim answers kervd's modem-daemon requests on UDP loopback like a pair
of modems (an LTE and a 2G/3G modem), from built-in answers and a rules file
that can also inject faults, so that kervd runs and is tested without modems.")

include(CPack)
cpack_add_component(Runtime DISPLAY_NAME "kervd")
cpack_add_component(Development DISPLAY_NAME "kervd SDK" DEPENDS Runtime)
cpack_add_component(Tools DISPLAY_NAME "kervd development tools")

# Libraries find the project's other libraries next to themselves.
set_target_properties(kervutil kervrequest PROPERTIES INSTALL_RPATH "\$ORIGIN")
set_target_properties(sncfg PROPERTIES INSTALL_RPATH "")
