/* Shared by the toolkit's tests: texts and buffers sized exactly, so AddressSanitizer and
   the guard bytes catch any access past them. */
#ifndef RMMI_UTILITY_FIXTURE_H
#define RMMI_UTILITY_FIXTURE_H

#include "rmmi_utility.h"

#include <cstring>
#include <string>
#include <vector>

constexpr kal_uint8 kGuard = 0xAA;

/* A zero-terminated copy of s in a buffer of exactly its size. */
inline std::vector<kal_uint8> text_bytes(const std::string &s) {
    std::vector<kal_uint8> bytes(s.begin(), s.end());
    bytes.push_back(0);
    return bytes;
}

inline std::string as_string(const kal_uint8 *bytes) {
    return reinterpret_cast<const char *>(bytes);
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
        return end != nullptr ? as_string(bytes.data()) : "<unterminated>";
    }
    bool guards_intact() const {
        return std::vector<kal_uint8>(bytes.begin() + size, bytes.end()) ==
               std::vector<kal_uint8>(4, kGuard);
    }
};

#endif /* RMMI_UTILITY_FIXTURE_H */
