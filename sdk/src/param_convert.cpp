/* Parameter toolkit: upper-casing, text copies, byte order and printing bytes as text. */
#include "rmmi_utility.h"

#include <cassert>
#include <cstring>

namespace {

/* Appends one byte as two upper-case hexadecimal digits; gives the new length. */
size_t put_hex_byte(kal_char *str, size_t at, kal_uint8 byte) {
    return at + static_cast<size_t>(kal_sprintf(str + at, "%02X", byte));
}

bool is_zero_pair(const kal_uint8 *bytes) {
    return bytes[0] == 0 && bytes[1] == 0;
}

/* Dotted decimal stops once the text is longer than this. */
constexpr size_t kDottedTextLimit = 16;

} // namespace

extern "C" {

void toUpper(kal_uint8 *str) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_TOUPPER_ENTRY");
    assert(str != ((void *)0));
    for (kal_uint8 *p = str; *p != 0; ++p) {
        if (*p >= 'a' && *p <= 'z')
            *p -= 32;
    }
}

/*
 * A wide character is one byte on this platform, so both directions are a copy of the
 * text with its terminator, whatever its length.
 */
void ascii_to_ucs2(const kal_uint8 *src, kal_wchar *dest) {
    assert((src != ((void *)0)) && (dest != ((void *)0)));
    kal_mem_cpy(dest, src,
                static_cast<kal_uint32>(strlen(reinterpret_cast<const char *>(src)) + 1));
}

kal_bool ucs2_to_ascii(const kal_wchar *ucs2_src, kal_uint8 *ascii_dest) {
    assert((ucs2_src != ((void *)0)) && (ascii_dest != ((void *)0)));
    kal_mem_cpy(ascii_dest, ucs2_src, static_cast<kal_uint32>(strlen(ucs2_src) + 1));
    return KAL_TRUE;
}

void rmmi_byte_order_reverse(kal_uint8 *src, kal_uint16 length) {
    assert(src != ((void *)0));
    for (size_t i = 0; i + 1 < length; i += 2) {
        const kal_uint8 first = src[i];
        src[i] = src[i + 1];
        src[i + 1] = first;
    }
}

void print_hex_value_ext(const kal_uint8 *val, kal_char *str, kal_uint8 length) {
    assert((str != ((void *)0)) && (val != ((void *)0)));
    size_t at = 0;
    for (size_t i = 0; i < length; ++i)
        at = put_hex_byte(str, at, val[i]);
    str[at] = 0;
}

void print_hex_value(const kal_uint8 *val, kal_char *str) {
    assert((str != ((void *)0)) && (val != ((void *)0)));
    size_t at = 0;
    for (size_t i = 0; !is_zero_pair(val + i); ++i)
        at = put_hex_byte(str, at, val[i]);
    str[at] = 0;
}

void rmmi_print_ucs2(const kal_wchar *val, kal_char *str) {
    assert((str != ((void *)0)) && (val != ((void *)0)));
    const kal_uint8 *bytes = reinterpret_cast<const kal_uint8 *>(val);
    size_t at = 0;
    for (size_t i = 0; !is_zero_pair(bytes + i); i += 2) {
        at = put_hex_byte(str, at, bytes[i]);
        at = put_hex_byte(str, at, bytes[i + 1]);
    }
    str[at] = 0;
}

void rmmi_value2string(kal_char *str, const kal_uint8 *val, kal_uint8 cnt) {
    assert((str != ((void *)0)) && (val != ((void *)0)));
    if (cnt == 0)
        return;
    size_t length = static_cast<size_t>(kal_sprintf(str, "%d", val[0]));
    for (size_t i = 1; i < cnt && length <= kDottedTextLimit; ++i)
        length += static_cast<size_t>(kal_sprintf(str + length, ".%d", val[i]));
}

} // extern "C"
