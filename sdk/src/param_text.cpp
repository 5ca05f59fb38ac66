/* Parameter toolkit: quoted strings, message text, hexadecimal text and file names. */
#include "rmmi_utility.h"
#include "param_cursor.h"

#include <cassert>
#include <cstdint>
#include <cstring>

using namespace rmmi_cursor;

namespace {

constexpr kal_uint8 kQuote = '"';
constexpr kal_uint8 kBackslash = '\\';
/* Text validators: 0 when a parameter with text was read, 255 otherwise. */
constexpr kal_uint32 kText = 0;
constexpr kal_uint32 kNoText = 255;

/* Puts a terminator at position at of a buffer of size bytes, when it fits there. */
void put_terminator(kal_uint8 *buffer, size_t at, size_t size) {
    if (at < size)
        buffer[at] = 0;
}

/* An output text being filled: size is its buffer's, the terminator's byte included. */
struct text_out {
    kal_uint8 *str;
    size_t size;
    size_t length;
};

text_out open_text(kal_uint8 *str, size_t size) {
    return {str, size, 0};
}

bool is_full(const text_out &out) {
    return out.size == 0 || out.length >= out.size - 1;
}

void append(text_out &out, kal_uint8 byte) {
    out.str[out.length++] = byte;
}

void end_text(const text_out &out) {
    put_terminator(out.str, out.length, out.size);
}

/* Ends the text read so far and reports why the parameter gives no text. */
kal_uint32 give_up(const text_out &out, kal_uint8 *error_cause, rmmi_validator_cause_enum cause) {
    end_text(out);
    report(error_cause, cause);
    return kNoText;
}

bool is_letter(kal_uint8 c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool is_hex_digit(kal_uint8 c) {
    return is_digit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

kal_uint8 hex_digit_value(kal_uint8 c) {
    return is_digit(c) ? c - '0' : (c | 0x20) - 'a' + 10;
}

kal_uint8 hex_byte(kal_uint8 high, kal_uint8 low) {
    return static_cast<kal_uint8>(hex_digit_value(high) << 4 | hex_digit_value(low));
}

/* The bytes a restricted string may hold besides letters and digits. */
bool is_restricted_text_byte(kal_uint8 c) {
    return is_digit(c) || is_letter(c) || in_set(c, "#*+,./:^-[]<_ ;>");
}

/*
 * "\hh" at the cursor: the byte it stands for. On success the cursor is on the second
 * digit; on failure on the byte that is not a hexadecimal digit.
 */
bool read_escape(param_reader &reader, kal_uint8 *byte) {
    advance(reader);
    const kal_uint8 high = current(reader);
    if (!is_hex_digit(high))
        return false;
    advance(reader);
    const kal_uint8 low = current(reader);
    if (!is_hex_digit(low))
        return false;
    *byte = hex_byte(high, low);
    return true;
}

/*
 * Decodes hexadecimal text, upper-cased in place, two digits per byte, then puts the
 * two-byte terminator, as much of it as val_size leaves room for. The second digit of a
 * pair is only looked at when the first is a digit, so an odd count stops on the text's
 * own terminator.
 */
bool decode_hex_text(kal_uint8 *str, kal_uint8 *val, size_t val_size, size_t *decoded) {
    toUpper(str);
    size_t length = 0;
    for (const kal_uint8 *pair = str; *pair != 0; pair += 2) {
        if (!is_hex_digit(pair[0]) || !is_hex_digit(pair[1]))
            return false;
        val[length++] = hex_byte(pair[0], pair[1]);
    }
    put_terminator(val, length, val_size);
    put_terminator(val, length + 1, val_size);
    *decoded = length;
    return true;
}

/* A file name's text form: the work buffer it is read into and how it is stored. */
struct filename_form {
    kal_uint8 coding_scheme;
    kal_uint32 (*work_size)(kal_uint16 max_length);
    bool (*store)(kal_uint8 *text, kal_uint16 max_length, kal_wchar *filename,
                  kal_uint16 *filename_length);
};

kal_uint32 ira_work_size(kal_uint16 max_length) {
    return max_length;
}

/* Four digits per character, but never a work buffer beyond 500 bytes for a long name. */
kal_uint32 ucs2_work_size(kal_uint16 max_length) {
    const kal_uint32 size = 4u * max_length;
    return size > 499 ? 500 : size;
}

bool store_ira_name(kal_uint8 *text, kal_uint16, kal_wchar *filename, kal_uint16 *filename_length) {
    *filename_length = static_cast<kal_uint16>(strlen(reinterpret_cast<char *>(text)) + 1);
    ascii_to_ucs2(text, filename);
    return true;
}

/*
 * The work buffer holds fewer than 4 * max_length digits (or at most 499), so the
 * decoded bytes always fit in the 2 * max_length bytes of filename; only the two-byte
 * terminator may not, and the zeros filename was cleared with stand in for it.
 * Swapping only the decoded pairs equals swapping the whole cleared buffer, and keeps
 * the count within 16 bits whatever max_length is.
 */
bool store_ucs2_name(kal_uint8 *text, kal_uint16 max_length, kal_wchar *filename,
                     kal_uint16 *filename_length) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_CHECK_HEX_VALUE_ENTRY");
    const size_t digits = strlen(reinterpret_cast<char *>(text));
    kal_uint8 *bytes = reinterpret_cast<kal_uint8 *>(filename);
    size_t decoded = 0;
    if (!decode_hex_text(text, bytes, 2u * max_length, &decoded))
        return false;
    *filename_length = static_cast<kal_uint16>(digits / 4 + 1);
    rmmi_byte_order_reverse(bytes, static_cast<kal_uint16>((decoded + 1) & ~size_t{1}));
    return true;
}

constexpr filename_form kFilenameForms[] = {
    {RMMI_CHSET_IRA, ira_work_size, store_ira_name},
    {RMMI_CHSET_UCS2, ucs2_work_size, store_ucs2_name},
};

const filename_form *find_filename_form(kal_uint8 coding_scheme) {
    for (const filename_form &form : kFilenameForms) {
        if (form.coding_scheme == coding_scheme)
            return &form;
    }
    return nullptr;
}

/* The work buffer of a file name, from the control-buffer heap, released on every path. */
struct work_buffer {
    kal_uint8 *bytes;
    explicit work_buffer(kal_uint32 size)
        : bytes(static_cast<kal_uint8 *>(get_ctrl_buffer(size))) {}
    ~work_buffer() { free_ctrl_buffer(bytes); }
    work_buffer(const work_buffer &) = delete;
    work_buffer &operator=(const work_buffer &) = delete;
};

/* Digit values as the unchecked decoder takes them: anything not 0-9 counts as A-F. */
kal_uint32 unchecked_digit_value(kal_uint8 c) {
    return is_digit(c) ? c - 48u : c - 55u;
}

} // namespace

extern "C" {

kal_uint32 rmmi_string_validator_ext(kal_uint8 *error_cause, rmmi_string_struct *source_string_ptr,
                                     kal_uint8 delimiter, kal_uint8 delimiter2,
                                     kal_uint16 max_length, kal_uint8 *str) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_STRING_VALIDATOR_ENTRY");
    assert((str != ((void *)0)) && (source_string_ptr != ((void *)0)) &&
           (error_cause != ((void *)0)));
    *error_cause = RMMI_PARSE_OK;
    param_reader reader = open_reader(source_string_ptr);
    text_out out = open_text(str, max_length);
    if (at_end(reader))
        return give_up(out, error_cause, RMMI_PARSE_NOT_FOUND);
    skip_blanks(reader);
    if (current(reader) != kQuote) {
        if (!is_list_delimiter(current(reader), delimiter, delimiter2))
            return give_up(out, error_cause, RMMI_PARSE_ERROR);
        advance(reader);
        return give_up(out, error_cause, RMMI_PARSE_NOT_FOUND);
    }
    advance(reader);
    while (current(reader) != kQuote) {
        if (is_full(out))
            return give_up(out, error_cause, RMMI_PARSE_TEXT_TOO_LONG);
        if (at_end(reader))
            return give_up(out, error_cause, RMMI_PARSE_ERROR);
        kal_uint8 byte = current(reader);
        if (byte == kBackslash && !read_escape(reader, &byte))
            return give_up(out, error_cause, RMMI_PARSE_ERROR);
        append(out, byte);
        advance(reader);
    }
    end_text(out);
    advance(reader);
    skip_blanks(reader);
    if (!is_list_delimiter(current(reader), delimiter, delimiter2)) {
        *error_cause = RMMI_PARSE_ERROR;
        return kNoText;
    }
    advance(reader);
    return out.length > 0 ? kText : kNoText;
}

kal_uint32 rmmi_string_validator(rmmi_string_struct *source_string_ptr, kal_uint8 delimiter,
                                 kal_uint16 max_length, kal_uint8 *str) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_STRING_VALIDATOR_ENTRY");
    assert((str != ((void *)0)) && (source_string_ptr != ((void *)0)));
    param_reader reader = open_reader(source_string_ptr);
    text_out out = open_text(str, max_length);
    skip_blanks(reader);
    bool closed = false;
    if (current(reader) == kQuote) {
        advance(reader);
        while (is_restricted_text_byte(current(reader)) && !is_full(out)) {
            append(out, current(reader));
            advance(reader);
        }
        closed = current(reader) == kQuote;
        if (closed)
            advance(reader);
    }
    end_text(out);
    skip_blanks(reader);
    if (current(reader) != delimiter)
        return kNoText;
    advance(reader);
    return closed && out.length > 0 ? kText : kNoText;
}

kal_uint32 rmmi_sms_text_validator(rmmi_string_struct *source_string_ptr, kal_uint8 delimiter,
                                   kal_uint16 max_length, kal_uint8 *str) {
    assert((str != ((void *)0)) && (source_string_ptr != ((void *)0)));
    param_reader reader = open_reader(source_string_ptr);
    text_out out = open_text(str, max_length);
    while (current(reader) != delimiter) {
        if (at_end(reader) || is_full(out))
            return give_up(out, nullptr, RMMI_PARSE_ERROR);
        append(out, current(reader));
        advance(reader);
    }
    end_text(out);
    advance(reader);
    return kText;
}

kal_uint32 rmmi_hex_validator_ext(kal_uint8 *error_cause, rmmi_string_struct *source_string_ptr,
                                  kal_uint8 delimiter, kal_uint8 delimiter2, kal_uint16 max_length,
                                  kal_uint8 *str) {
    assert((str != ((void *)0)) && (source_string_ptr != ((void *)0)) &&
           (error_cause != ((void *)0)));
    param_reader reader = open_reader(source_string_ptr);
    skip_blanks(reader);
    *error_cause = RMMI_PARSE_OK;
    toUpper(source_string_ptr->string_ptr);
    text_out out = open_text(str, max_length);
    if (ends_parameter(reader, delimiter, delimiter2)) {
        advance(reader);
        return give_up(out, error_cause, RMMI_PARSE_NOT_FOUND);
    }
    do {
        if (is_full(out) || !is_hex_digit(current(reader)))
            return give_up(out, error_cause, RMMI_PARSE_ERROR);
        append(out, current(reader));
        advance(reader);
    } while (!ends_parameter(reader, delimiter, delimiter2));
    end_text(out);
    advance(reader);
    return kText;
}

kal_uint32 rmmi_filename_validator(kal_uint8 coding_scheme, rmmi_string_struct *source_string_ptr,
                                   kal_uint8 delimiter, kal_uint8 delimiter2, kal_uint16 max_length,
                                   kal_wchar *filename, kal_uint16 *filename_length,
                                   kal_uint8 *error_cause) {
    assert((filename != ((void *)0)) && (filename_length != ((void *)0)) &&
           (error_cause != ((void *)0)));
    *filename_length = 0;
    kal_mem_set(filename, 0, 2u * max_length);
    const filename_form *form = find_filename_form(coding_scheme);
    if (form == nullptr) {
        *error_cause = RMMI_PARSE_ERROR;
        return kNoText;
    }
    const kal_uint32 work_size = form->work_size(max_length);
    work_buffer work(work_size);
    if (work.bytes == nullptr) {
        *error_cause = RMMI_PARSE_ERROR;
        return kNoText;
    }
    const kal_uint32 result =
        rmmi_string_validator_ext(error_cause, source_string_ptr, delimiter, delimiter2,
                                  static_cast<kal_uint16>(work_size), work.bytes);
    if (result == kNoText)
        return result;
    if (!form->store(work.bytes, max_length, filename, filename_length)) {
        /* No half-decoded name is left behind for a caller that ignores the result. */
        kal_mem_set(filename, 0, 2u * max_length);
        *error_cause = RMMI_PARSE_ERROR;
        return kNoText;
    }
    return result;
}

kal_bool check_hex_value_ext(kal_uint8 *str, kal_uint8 *val) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_CHECK_HEX_VALUE_ENTRY");
    assert((str != ((void *)0)) && (val != ((void *)0)));
    size_t decoded = 0;
    return decode_hex_text(str, val, SIZE_MAX, &decoded) ? KAL_TRUE : KAL_FALSE;
}

void check_hex_value(kal_uint8 *str, kal_uint8 *val) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_CHECK_HEX_VALUE_ENTRY");
    assert((str != ((void *)0)) && (val != ((void *)0)));
    toUpper(str);
    /* A lone last digit has no partner: it is left out rather than read past the text. */
    for (size_t i = 0; str[i] != 0 && str[i + 1] != 0; i += 2)
        val[i / 2] = static_cast<kal_uint8>(unchecked_digit_value(str[i]) * 16 +
                                            unchecked_digit_value(str[i + 1]));
}

kal_bool rmmi_hexstring_to_integer(kal_uint8 *str, kal_uint32 *val) {
    assert((str != ((void *)0)) && (val != ((void *)0)));
    toUpper(str);
    kal_uint32 value = 0;
    for (const kal_uint8 *p = str; *p != 0; ++p) {
        if (!is_hex_digit(*p))
            return KAL_FALSE;
        value = value * 16 + hex_digit_value(*p);
    }
    *val = value;
    return KAL_TRUE;
}

kal_bool string_is_pure_ascii(kal_uint8 *str, kal_uint8 *val, kal_uint8 dcs) {
    if (dcs != RMMI_CHSET_UCS2)
        return KAL_FALSE;
    toUpper(str);
    assert(val != ((void *)0));
    /* Each byte of a group is looked at only when the one before it is not the end. */
    for (size_t i = 0; str[i] != 0; i += 4) {
        if (str[i] != '0' || str[i + 1] != '0') {
            KERV_DBG("INFO_STRING_IS_PURE_ASCII_STRING_IS_NOT_STRATING_WITH_0X00");
            return KAL_FALSE;
        }
        if (!is_hex_digit(str[i + 2])) {
            KERV_DBG("i=[%d], str[i+2]=[%c]", static_cast<int>(i), str[i + 2]);
            return KAL_FALSE;
        }
        if (!is_hex_digit(str[i + 3])) {
            KERV_DBG("i=[%d], str[i+3]=[%c]", static_cast<int>(i), str[i + 3]);
            return KAL_FALSE;
        }
        val[i / 2] = str[i + 2];
        val[i / 2 + 1] = str[i + 3];
    }
    return KAL_TRUE;
}

} // extern "C"
