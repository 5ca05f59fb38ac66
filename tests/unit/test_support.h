/*
 * Helpers shared by the unit tests of the pure modules: a private temporary directory,
 * descriptor exhaustion, and exactly sized texts and buffers for the toolkit.
 */
#ifndef TEST_SUPPORT_H
#define TEST_SUPPORT_H

#include "rmmi_utility.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace rmmi_test {

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

/* An output buffer of size bytes followed by guard bytes that must stay untouched. */
struct output_buffer {
    std::vector<kal_uint8> bytes;
    size_t size;

    explicit output_buffer(size_t n) : bytes(n + 4, kGuard), size(n) {}
    kal_uint8 *data() { return bytes.data(); }
    /* The stored text, or "<unterminated>" when no terminator lies within size. */
    std::string text() const {
        const void *end = memchr(bytes.data(), 0, size);
        return end != nullptr ? reinterpret_cast<const char *>(bytes.data()) : "<unterminated>";
    }
    bool guards_intact() const {
        return std::vector<kal_uint8>(bytes.begin() + size, bytes.end()) ==
               std::vector<kal_uint8>(4, kGuard);
    }
};

} // namespace rmmi_test

#endif /* TEST_SUPPORT_H */
