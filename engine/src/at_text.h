/*
 * The characters of AT command text, and the cursor over one command, as the engine's
 * modules read them.
 */
#ifndef KERV_AT_TEXT_H
#define KERV_AT_TEXT_H

#include "rmmi_common.h"

constexpr bool rmmi_is_a(kal_uint8 c) {
    return c == 'A' || c == 'a';
}
constexpr bool rmmi_is_t(kal_uint8 c) {
    return c == 'T' || c == 't';
}
constexpr bool rmmi_is_letter(kal_uint8 c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
constexpr bool rmmi_is_digit(kal_uint8 c) {
    return c >= '0' && c <= '9';
}
constexpr bool rmmi_is_prefix_symbol(kal_uint8 c) {
    return c == '+' || c == '^' || c == '%' || c == '$';
}

inline kal_uint8 rmmi_at_cursor(const rmmi_string_struct *cursor) {
    return cursor->string_ptr[cursor->index];
}

inline void rmmi_skip_blanks(rmmi_string_struct *cursor) {
    while (rmmi_at_cursor(cursor) == ' ')
        ++cursor->index;
}

#endif /* KERV_AT_TEXT_H */
