/* Parameter toolkit: number readers and integer validators. */
#include "rmmi_utility.h"
#include "param_cursor.h"

#include <cassert>
#include <cstring>

using namespace rmmi_cursor;

namespace {

/* Integer validators: the value returned for an omitted or malformed parameter. */
constexpr kal_uint32 kNoValue = 255;

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
