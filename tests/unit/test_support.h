/*
 * Helpers shared by the unit tests of the pure modules: descriptor exhaustion and exactly
 * sized texts for the toolkit, next to what every kind of test shares.
 */
#ifndef TEST_SUPPORT_H
#define TEST_SUPPORT_H

#include "kerv_test_support.h"
#include "rmmi_utility.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

namespace rmmi_test {

using kerv_test::GuardedBuffer;
using kerv_test::ScopedSetting;
using kerv_test::TempDir;

/* While it lives, the process cannot open another descriptor. */
struct NoFreeDescriptors {
    rlimit saved{};
    NoFreeDescriptors() {
        getrlimit(RLIMIT_NOFILE, &saved);
        const int lowest_free = dup(0);
        close(lowest_free);
        rlimit exhausted = saved;
        exhausted.rlim_cur = static_cast<rlim_t>(lowest_free);
        setrlimit(RLIMIT_NOFILE, &exhausted);
    }
    ~NoFreeDescriptors() { setrlimit(RLIMIT_NOFILE, &saved); }
};

/* Toolkit texts and buffers are sized exactly, so AddressSanitizer and the guard bytes catch
   any access past them. */
constexpr kal_uint8 kGuard = 0xAA;

/* A zero-terminated copy of s in a buffer of exactly its size. */
inline std::vector<kal_uint8> text_bytes(const std::string &s) {
    std::vector<kal_uint8> bytes(s.begin(), s.end());
    bytes.push_back(0);
    return bytes;
}

/* A command text and a cursor over it. */
struct cursor_fixture {
    std::vector<kal_uint8> text;
    rmmi_string_struct cursor{};

    explicit cursor_fixture(const std::string &s, kal_uint16 index = 0) : text(text_bytes(s)) {
        cursor.string_ptr = text.data();
        cursor.index = index;
    }
};

} // namespace rmmi_test

#endif /* TEST_SUPPORT_H */
