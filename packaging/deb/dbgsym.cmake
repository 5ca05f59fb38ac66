# CPack post-build script: makes CPack's debug-symbol packages (<package>-dbgsym_*.ddeb)
# what Debian's own tools make, with
#   - md5sums that name the files by their path in the package (CPack writes the paths of
#     its staging tree there),
#   - debug files mode 0644 (they are data, not programs),
#   - /usr/share/doc/<package>-dbgsym a link to the documentation of the package whose
#     debug symbols it holds (its copyright and changelog), on which it depends exactly.
# Runs once per CPack run, with CPACK_PACKAGE_FILES naming everything built, before CPack
# copies the packages out: each is rebuilt in place. Debian names them *.deb: `make package`
# renames them.
find_program(kerv_dpkg_deb dpkg-deb REQUIRED)
foreach(ddeb IN LISTS CPACK_PACKAGE_FILES)
  if(NOT ddeb MATCHES "^(.*/)?(([^/_]+)-dbgsym)_([^/]+)\\.ddeb$")
    continue()
  endif()
  set(dbgsym_package ${CMAKE_MATCH_2})
  set(package ${CMAKE_MATCH_3})
  set(tree "${ddeb}.tree")
  file(REMOVE_RECURSE "${tree}")
  execute_process(COMMAND ${kerv_dpkg_deb} --raw-extract "${ddeb}" "${tree}"
    COMMAND_ERROR_IS_FATAL ANY)

  file(GLOB_RECURSE debug_files RELATIVE "${tree}" "${tree}/usr/*")
  list(SORT debug_files)
  set(md5sums "")
  foreach(file IN LISTS debug_files)
    file(CHMOD "${tree}/${file}" FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    file(MD5 "${tree}/${file}" sum)
    string(APPEND md5sums "${sum}  ${file}\n")
  endforeach()
  file(WRITE "${tree}/DEBIAN/md5sums" "${md5sums}")
  file(CHMOD "${tree}/DEBIAN/md5sums" FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  file(MAKE_DIRECTORY "${tree}/usr/share/doc")
  file(CREATE_LINK ${package} "${tree}/usr/share/doc/${dbgsym_package}" SYMBOLIC)

  execute_process(COMMAND ${kerv_dpkg_deb} --root-owner-group -Zxz --build "${tree}" "${ddeb}"
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE "${tree}")
endforeach()
