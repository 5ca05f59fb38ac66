# Install layout. Everything goes below the install prefix, except for a /usr prefix (a
# system or package install): then the plug-in directory and the systemd unit take their
# places in the root file system, the way GNUInstallDirs places /etc and /var for /usr.
if(NOT IS_ABSOLUTE "${KERV_PLUGIN_DIR}")
  message(FATAL_ERROR "KERV_PLUGIN_DIR must be an absolute path, not '${KERV_PLUGIN_DIR}'")
endif()
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(KERV_PLUGIN_INSTALL_DIR "${KERV_PLUGIN_DIR}")
  set(KERV_SYSTEMD_UNIT_DIR /lib/systemd/system)
else()
  string(REGEX REPLACE "^/+" "" KERV_PLUGIN_INSTALL_DIR "${KERV_PLUGIN_DIR}")
  set(KERV_SYSTEMD_UNIT_DIR lib/systemd/system)
endif()

# The configuration-store stand-in lives in a directory of its own, searched first by the
# programs that link it: on a board, removing it (or putting the board's libsncfg.so in its
# place) makes them use the board's library.
set(KERV_SNCFG_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/kerv)

# Installed programs find the project's libraries relative to themselves, so that an
# install into any prefix (or an unpacked package) runs as it is.
file(RELATIVE_PATH kerv_bin_to_lib /p/${CMAKE_INSTALL_SBINDIR} /p/${CMAKE_INSTALL_LIBDIR})
set(CMAKE_INSTALL_RPATH "\$ORIGIN/${kerv_bin_to_lib}" "\$ORIGIN/${kerv_bin_to_lib}/kerv")

set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# Shared libraries and plug-ins are not programs: no execute bits.
set(KERV_LIBRARY_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# kerv_pkg_config(<library> <description>): installs <library>.pc for the library of that
# name. The file finds the prefix from where it is installed, so a copied or unpacked tree
# works as well as the configured prefix.
function(kerv_pkg_config library description)
  set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH PC_TO_PREFIX /prefix/${pc_dir} /prefix)
  string(REGEX REPLACE "/$" "" PC_TO_PREFIX "${PC_TO_PREFIX}")
  set(PC_NAME ${library})
  set(PC_DESCRIPTION "${description}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/kerv.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${library}.pc
    @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${library}.pc DESTINATION ${pc_dir}
    COMPONENT Development)
endfunction()
