#include "rmmi_utility.h"

#include <cassert>
#include <cstdint>
#include <cstring>

namespace {

constexpr kal_uint8 kBlank = ' ';
/* Integer validators: the value returned for an omitted or malformed parameter. */
constexpr kal_uint32 kNoValue = 255;
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

param_reader open_reader(rmmi_string_struct *cursor) {
    assert(cursor->string_ptr != ((void *)0));
    const size_t length = strlen(reinterpret_cast<const char *>(cursor->string_ptr));
    return {cursor, length > kLastPosition ? kLastPosition : static_cast<kal_uint16>(length)};
}

bool at_end(const param_reader &reader) {
    return reader.cursor->index >= reader.length;
}

kal_uint8 current(const param_reader &reader) {
    return at_end(reader) ? 0 : reader.cursor->string_ptr[reader.cursor->index];
}

void advance(param_reader &reader) {
    if (reader.cursor->index != kLastPosition)
        ++reader.cursor->index;
}

void skip_blanks(param_reader &reader) {
    while (current(reader) == kBlank)
        advance(reader);
}

bool is_digit(kal_uint8 c) {
    return c >= '0' && c <= '9';
}

/* Membership in a set of bytes; the terminator is never a member. */
bool in_set(kal_uint8 c, const char *set) {
    return c != 0 && strchr(set, c) != nullptr;
}

void report(kal_uint8 *error_cause, rmmi_validator_cause_enum cause) {
    if (error_cause != nullptr)
        *error_cause = static_cast<kal_uint8>(cause);
}

/* How one member of the integer validator family differs from the others. */
struct int_rules {
    bool range_checked; /* refuse any digit and value above max */
    bool list_tail;     /* a delimiter must be followed by another parameter */
};

constexpr int_rules kWrappingNumber{false, false};
constexpr int_rules kWrappingListItem{false, true};
constexpr int_rules kBoundedListItem{true, true};

/* With the check before each step, the value can never exceed max, so it cannot overflow. */
bool digit_fits(const int_rules &rules, kal_uint32 value, kal_uint32 digit, kal_uint32 max) {
    return !rules.range_checked || (digit <= max && value <= (max - digit) / 10);
}

bool is_list_delimiter(kal_uint8 c, kal_uint8 delimiter, kal_uint8 delimiter2) {
    return c == delimiter || c == delimiter2;
}

bool ends_parameter(const param_reader &reader, kal_uint8 delimiter, kal_uint8 delimiter2) {
    return is_list_delimiter(current(reader), delimiter, delimiter2) || at_end(reader);
}

/* The byte after a delimiter is delimiter2: the list ends in a separator with nothing after. */
bool list_ends_in_separator(param_reader &reader, kal_uint8 delimiter2) {
    skip_blanks(reader);
    return current(reader) == delimiter2;
}

/*
 * Reads one unsigned decimal parameter at the cursor (blanks already skipped) by the
 * member's rules. On false the outcome is reported and the cursor is where the caller
 * leaves it: past the delimiter of an omitted parameter, on the offending byte otherwise.
 */
bool read_unsigned(const int_rules &rules, kal_uint8 *error_cause, param_reader &reader,
                   kal_uint8 delimiter, kal_uint8 delimiter2, kal_uint32 max, kal_uint32 *value) {
    if (ends_parameter(reader, delimiter, delimiter2)) {
        report(error_cause, RMMI_PARSE_NOT_FOUND);
        advance(reader);
        return false;
    }
    *value = 0;
    do {
        const kal_uint8 c = current(reader);
        if (!is_digit(c) || !digit_fits(rules, *value, c - '0', max)) {
            report(error_cause, RMMI_PARSE_ERROR);
            return false;
        }
        *value = *value * 10 + (c - '0');
        advance(reader);
    } while (!ends_parameter(reader, delimiter, delimiter2));

    const bool stopped_at_delimiter = !at_end(reader) && current(reader) == delimiter;
    advance(reader);
    if (rules.list_tail && stopped_at_delimiter && list_ends_in_separator(reader, delimiter2)) {
        report(error_cause, RMMI_PARSE_ERROR);
        return false;
    }
    return true;
}

kal_uint32 read_int_parameter(const int_rules &rules, kal_uint8 *error_cause,
                              rmmi_string_struct *cursor, kal_uint8 delimiter, kal_uint8 delimiter2,
                              kal_uint32 max) {
    param_reader reader = open_reader(cursor);
    skip_blanks(reader);
    report(error_cause, RMMI_PARSE_OK);
    kal_uint32 value = 0;
    if (!read_unsigned(rules, error_cause, reader, delimiter, delimiter2, max, &value))
        return kNoValue;
    return value;
}

/* Dial-string bytes that are kept, and those that are dropped (tone, pause, blanks). */
constexpr const char *kDialKept = "0123456789*#+pPiIgG";
constexpr const char *kDialDropped = "Tt, !";

bool ends_dial_string(kal_uint8 c, kal_uint8 delimiter) {
    return c == delimiter || c == ';';
}

} // namespace

extern "C" {

kal_uint32 rmmi_int_validator(rmmi_string_struct *source_string_ptr, kal_uint8 delimiter,
                              kal_uint8 delimiter2) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_INT_VALIDATOR_ENTRY");
    assert(source_string_ptr != ((void *)0));
    return read_int_parameter(kWrappingNumber, nullptr, source_string_ptr, delimiter, delimiter2,
                              0);
}

kal_uint32 rmmi_int_validator_ext(kal_uint8 *error_cause, rmmi_string_struct *source_string_ptr,
                                  kal_uint8 delimiter, kal_uint8 delimiter2) {
    assert((source_string_ptr != ((void *)0)) && (error_cause != ((void *)0)));
    return read_int_parameter(kWrappingListItem, error_cause, source_string_ptr, delimiter,
                              delimiter2, 0);
}

kal_uint32 rmmi_int_validator_range_check(kal_uint8 *error_cause,
                                          rmmi_string_struct *source_string_ptr,
                                          kal_uint8 delimiter, kal_uint8 delimiter2,
                                          kal_uint32 max) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_INT_VALIDATOR_ENTRY");
    assert(source_string_ptr != ((void *)0));
    return read_int_parameter(kBoundedListItem, error_cause, source_string_ptr, delimiter,
                              delimiter2, max);
}

kal_int32 rmmi_signed_int_validator(kal_uint8 *error_cause, rmmi_string_struct *source_string_ptr,
                                    kal_uint8 delimiter, kal_uint8 delimiter2) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_INT_VALIDATOR_ENTRY");
    assert((source_string_ptr != ((void *)0)) && (error_cause != ((void *)0)));
    *error_cause = RMMI_PARSE_OK;
    param_reader reader = open_reader(source_string_ptr);
    skip_blanks(reader);
    const bool negative = current(reader) == '-';
    if (negative)
        advance(reader);
    kal_uint32 value = 0;
    if (!read_unsigned(kWrappingNumber, error_cause, reader, delimiter, delimiter2, 0, &value))
        return static_cast<kal_int32>(kNoValue);
    return static_cast<kal_int32>(negative ? 0u - value : value);
}

kal_uint32 rmmi_extract_number(rmmi_string_struct *source_string_ptr,
                               rmmi_validator_cause_enum *result, kal_uint32 max) {
    assert(source_string_ptr != ((void *)0));
    KERV_PRINT("source_string_ptr->string_ptr=[%s],source_string_ptr->index=[%d]\r",
               reinterpret_cast<const char *>(source_string_ptr->string_ptr),
               source_string_ptr->index);
    param_reader reader = open_reader(source_string_ptr);
    kal_uint16 value = 0;
    rmmi_validator_cause_enum outcome = RMMI_PARSE_NOT_FOUND;
    while (is_digit(current(reader))) {
        const kal_uint32 digit = current(reader) - '0';
        KERV_PRINT("get char is number \r");
        KERV_PRINT("max=[%d], digit=[%d] \r", static_cast<int>(max), static_cast<int>(digit));
        if (digit > max || value > (max - digit) / 10) {
            outcome = RMMI_PARSE_ERROR;
            break;
        }
        advance(reader);
        skip_blanks(reader);
        value = static_cast<kal_uint16>(value * 10 + digit);
        outcome = RMMI_PARSE_OK;
    }
    if (result != nullptr)
        *result = outcome;
    return value;
}

kal_uint16 rmmi_extract_number_ext(rmmi_string_struct *source_string_ptr,
                                   rmmi_validator_cause_enum *result, kal_uint32 max,
                                   kal_uint8 delimiter2) {
    const kal_uint16 value =
        static_cast<kal_uint16>(rmmi_extract_number(source_string_ptr, result, max));
    param_reader reader = open_reader(source_string_ptr);
    skip_blanks(reader);
    if (result != nullptr && current(reader) != delimiter2)
        *result = RMMI_PARSE_ERROR;
    return value;
}

kal_bool extract_number_string(rmmi_string_struct *source_string_ptr, kal_uint8 delimiter,
                               kal_uint8 *ss_string, kal_uint8 max_length) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_EXTRACT_NUMBER_STRING_ENTRY");
    assert((source_string_ptr != ((void *)0)) && (ss_string != ((void *)0)));
    param_reader reader = open_reader(source_string_ptr);
    if (max_length == 0)
        return KAL_TRUE; /* no room even for the terminator: nothing to write */
    if (ends_dial_string(current(reader), delimiter) || max_length == 1) {
        ss_string[0] = 0;
        return KAL_TRUE;
    }
    kal_uint8 copied = 0;
    do {
        const kal_uint8 c = current(reader);
        if (in_set(c, kDialKept)) {
            ss_string[copied++] = c;
        } else if (!in_set(c, kDialDropped)) {
            KERV_TAG(KAL_DBG_ERROR, "ERROR_EXTRACT_NUMBER_FUNCTION_ILLEGAL_CHARACTER_ERROR");
            return KAL_FALSE;
        }
        advance(reader);
    } while (!ends_dial_string(current(reader), delimiter) && copied < max_length - 1);
    ss_string[copied] = 0;
    return KAL_TRUE;
}

void rmmi_skip_leading_chars(rmmi_string_struct *source_string_ptr) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_SKIP_LEADING_CHARS_ENTRY");
    assert(source_string_ptr != ((void *)0));
    param_reader reader = open_reader(source_string_ptr);
    while (in_set(current(reader), "Tt@!Pp "))
        advance(reader);
}

kal_bool rmmi_is_number_string(const kal_uint8 *str) {
    assert(str != ((void *)0));
    for (const kal_uint8 *p = str; *p != 0; ++p) {
        if (!is_digit(*p))
            return KAL_FALSE;
    }
    return KAL_TRUE;
}

} // extern "C"

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
