/*
 * The parameter readers' view of a command cursor, shared by the toolkit's source files:
 * the cursor with the length of its text, and the steps every reader takes over it.
 */
#ifndef KERV_PARAM_CURSOR_H
#define KERV_PARAM_CURSOR_H

#include "rmmi_utility.h"

#include <cassert>
#include <cstring>

namespace rmmi_cursor {

constexpr kal_uint8 kBlank = ' ';
/* A cursor holds 16-bit positions; it is never moved past the last of them. */
constexpr kal_uint16 kLastPosition = 0xFFFF;

/*
 * A cursor together with the length of its text, taken once on entry. Every read goes
 * through current(), which gives 0 at and beyond that length, so a cursor that was
 * already stepped over the terminator never makes a reader look past it.
 */
struct param_reader {
    rmmi_string_struct *cursor;
    kal_uint16 length;
};

inline param_reader open_reader(rmmi_string_struct *cursor) {
    assert(cursor->string_ptr != ((void *)0));
    const size_t length = strlen(reinterpret_cast<const char *>(cursor->string_ptr));
    return {cursor, length > kLastPosition ? kLastPosition : static_cast<kal_uint16>(length)};
}

inline bool at_end(const param_reader &reader) {
    return reader.cursor->index >= reader.length;
}

inline kal_uint8 current(const param_reader &reader) {
    return at_end(reader) ? 0 : reader.cursor->string_ptr[reader.cursor->index];
}

inline void advance(param_reader &reader) {
    if (reader.cursor->index != kLastPosition)
        ++reader.cursor->index;
}

inline void skip_blanks(param_reader &reader) {
    while (current(reader) == kBlank)
        advance(reader);
}

inline bool is_digit(kal_uint8 c) {
    return c >= '0' && c <= '9';
}

/* Membership in a set of bytes; the terminator is never a member. */
inline bool in_set(kal_uint8 c, const char *set) {
    return c != 0 && strchr(set, c) != nullptr;
}

inline void report(kal_uint8 *error_cause, rmmi_validator_cause_enum cause) {
    if (error_cause != nullptr)
        *error_cause = static_cast<kal_uint8>(cause);
}

inline bool is_list_delimiter(kal_uint8 c, kal_uint8 delimiter, kal_uint8 delimiter2) {
    return c == delimiter || c == delimiter2;
}

inline bool ends_parameter(const param_reader &reader, kal_uint8 delimiter, kal_uint8 delimiter2) {
    return is_list_delimiter(current(reader), delimiter, delimiter2) || at_end(reader);
}

} // namespace rmmi_cursor

#endif /* KERV_PARAM_CURSOR_H */
