/*
 * Small helpers shared by the unit tests of the platform layer, the socket wrapper, the
 * control requests and the store: what a call prints, how many descriptors are open, and
 * a private temporary directory.
 */
#ifndef KERV_TEST_SUPPORT_H
#define KERV_TEST_SUPPORT_H

#include "kal_common.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace kerv_test {

/* Runs fn at debug level dbg and returns what it printed on standard output. */
template <typename Fn> std::string stdout_at_level(kal_uint32 dbg, Fn fn) {
    const kal_uint32 saved = g_dbg_print;
    g_dbg_print = dbg;
    testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    g_dbg_print = saved;
    return testing::internal::GetCapturedStdout();
}

inline int open_fd_count() {
    int count = 0;
    DIR *dir = opendir("/proc/self/fd");
    while (readdir(dir) != nullptr)
        count++;
    closedir(dir);
    return count;
}

/* A fresh directory under /tmp, removed with everything in it at the end of its scope. */
struct TempDir {
    std::string path;
    TempDir() {
        char name[] = "/tmp/kerv-test-XXXXXX";
        EXPECT_NE(mkdtemp(name), nullptr);
        path = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
};

} // namespace kerv_test

#endif /* KERV_TEST_SUPPORT_H */
