# GoogleTest for the test suite. A native build takes the installed package; a cross build
# (or a machine with only the sources installed) builds the distribution's sources, found
# in KERV_GTEST_SOURCE_DIR, for the target. KERV_HAVE_GTEST tells whether it is there.
set(KERV_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH
  "GoogleTest sources, built for the target when no installed package fits")
set(KERV_HAVE_GTEST OFF)
if(KERV_BUILD_TESTS)
  if(NOT CMAKE_CROSSCOMPILING)
    find_package(GTest QUIET)
  endif()
  if(GTest_FOUND)
    set(KERV_HAVE_GTEST ON)
  elseif(EXISTS ${KERV_GTEST_SOURCE_DIR}/CMakeLists.txt)
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory(${KERV_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    set(KERV_HAVE_GTEST ON)
  else()
    message(WARNING "GoogleTest not found: only the tests without it are built "
      "(install libgtest-dev or googletest, or configure with -DKERV_BUILD_TESTS=OFF)")
  endif()
endif()
include(GoogleTest)

# kerv_test_program(<var> <target>): the path through which tests start the program
# <target>. Under an emulator (cross build) that is a small script that runs the program
# through it, so that tests can exec it without the emulator being registered with the
# kernel (binfmt_misc); otherwise the program itself.
function(kerv_test_program var target)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    set(${var} "$<TARGET_FILE:${target}>" PARENT_SCOPE)
    return()
  endif()
  set(wrapper ${CMAKE_BINARY_DIR}/emulated/${target})
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "\" \"" emulator)
  file(GENERATE OUTPUT ${wrapper}
    CONTENT "#!/bin/sh\nexec \"${emulator}\" \"$<TARGET_FILE:${target}>\" \"$@\"\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
      WORLD_READ WORLD_EXECUTE)
  set(${var} "${wrapper}" PARENT_SCOPE)
endfunction()
