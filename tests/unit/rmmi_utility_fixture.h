/* Shared by the toolkit's tests: a command text and a cursor over it. */
#ifndef RMMI_UTILITY_FIXTURE_H
#define RMMI_UTILITY_FIXTURE_H

#include "rmmi_utility.h"

#include <string>
#include <vector>

/* The text is held in a buffer of exactly its size, so that AddressSanitizer catches any
   read past the terminator. */
struct cursor_fixture {
    std::vector<kal_uint8> text;
    rmmi_string_struct cursor{};

    explicit cursor_fixture(const std::string &s, kal_uint16 index = 0) : text(s.begin(), s.end()) {
        text.push_back(0);
        cursor.string_ptr = text.data();
        cursor.index = index;
    }

    std::string string() const { return reinterpret_cast<const char *>(text.data()); }
};

/* A zero-terminated copy of s in a buffer of exactly its size. */
inline std::vector<kal_uint8> text_bytes(const std::string &s) {
    std::vector<kal_uint8> bytes(s.begin(), s.end());
    bytes.push_back(0);
    return bytes;
}

inline std::string as_string(const std::vector<kal_uint8> &bytes) {
    return reinterpret_cast<const char *>(bytes.data());
}

#endif /* RMMI_UTILITY_FIXTURE_H */
