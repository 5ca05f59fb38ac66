/*
 * The parameter toolkit as a validator uses it: one reader called again and again on one
 * command cursor, or one conversion on one text. Every output buffer is exactly the size
 * the toolkit's contract names, with guard bytes on both sides; the command text lives in
 * a heap block of its own size and a copy of it says what the call may have changed
 * (nothing, or a to z upper-cased). The cursor moves at most one step past the text.
 *
 * Input: function, delimiter, delimiter2, two bytes of max_length, start index, text.
 */
#include "kerv_test_support.h"
#include "rmmi_utility.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

void check(bool holds) {
    if (!holds)
        abort();
}

/* A buffer the call under test may fill; its guards are checked when it goes. */
struct Guarded : kerv_test::GuardedBuffer {
    using GuardedBuffer::GuardedBuffer;
    ~Guarded() { check(guards_intact()); }
};

/* One fuzz case: the parameters the input picked and the command text under test. */
struct Case {
    kal_uint8 delimiter;
    kal_uint8 delimiter2;
    kal_uint16 max_length;
    kal_uint16 start;
    std::string original; /* the text up to its first NUL */
    Guarded text;         /* its copy with the terminator, read and changed by the call */
    rmmi_string_struct cursor;

    size_t length() const { return original.size(); }
};

/* After a reader: the cursor is at most one past the text (or one past where it began),
   and the outcome is one of the four. */
void check_reader(const Case &c, kal_uint16 before, kal_uint8 cause) {
    const size_t limit = (before > c.length() ? before : c.length()) + 1;
    check(c.cursor.index <= limit);
    check(cause <= RMMI_PARSE_TEXT_TOO_LONG);
}

/* Calls read(c) while it moves the cursor within the text, as a validator walking a
   parameter list does; read returns the outcome. */
template <typename Read> void walk(Case &c, Read read) {
    for (int param = 0; param < 16; ++param) {
        const kal_uint16 before = c.cursor.index;
        check_reader(c, before, read(c));
        if (c.cursor.index == before || c.cursor.index >= c.length())
            return;
    }
}

void int_plain(Case &c) {
    walk(c, [](Case &k) {
        rmmi_int_validator(&k.cursor, k.delimiter, k.delimiter2);
        return kal_uint8{RMMI_PARSE_OK};
    });
}

void int_ext(Case &c) {
    walk(c, [](Case &k) {
        kal_uint8 cause = 0xEE;
        rmmi_int_validator_ext(&cause, &k.cursor, k.delimiter, k.delimiter2);
        return cause;
    });
}

void int_range(Case &c) {
    walk(c, [](Case &k) {
        kal_uint8 cause = 0xEE;
        const kal_uint32 value = rmmi_int_validator_range_check(&cause, &k.cursor, k.delimiter,
                                                                k.delimiter2, k.max_length);
        check(cause != RMMI_PARSE_OK || value <= k.max_length);
        return cause;
    });
}

void int_signed(Case &c) {
    walk(c, [](Case &k) {
        kal_uint8 cause = 0xEE;
        rmmi_signed_int_validator(&cause, &k.cursor, k.delimiter, k.delimiter2);
        return cause;
    });
}

void extract_number(Case &c) {
    walk(c, [](Case &k) {
        rmmi_validator_cause_enum result = RMMI_PARSE_OK;
        const kal_uint32 value =
            rmmi_extract_number_ext(&k.cursor, &result, k.max_length, k.delimiter2);
        check(result != RMMI_PARSE_OK || value <= k.max_length);
        return static_cast<kal_uint8>(result);
    });
}

void number_string(Case &c) {
    walk(c, [](Case &k) {
        const kal_uint8 size = static_cast<kal_uint8>(k.max_length);
        Guarded out(size);
        rmmi_skip_leading_chars(&k.cursor);
        if (extract_number_string(&k.cursor, k.delimiter, out.data(), size) && size > 0)
            check(out.terminated());
        return kal_uint8{RMMI_PARSE_OK};
    });
}

/* A text reader: the output is always terminated within its max_length bytes. */
template <typename Read> void text_reader(Case &c, Read read) {
    walk(c, [read](Case &k) {
        Guarded out(k.max_length);
        kal_uint8 cause = RMMI_PARSE_OK;
        const kal_uint32 result = read(k, out.data(), &cause);
        check(result == 0 || result == 255);
        check(k.max_length == 0 || out.terminated());
        return cause;
    });
}

void string_ext(Case &c) {
    text_reader(c, [](Case &k, kal_uint8 *out, kal_uint8 *cause) {
        return rmmi_string_validator_ext(cause, &k.cursor, k.delimiter, k.delimiter2, k.max_length,
                                         out);
    });
}

void string_plain(Case &c) {
    text_reader(c, [](Case &k, kal_uint8 *out, kal_uint8 *) {
        return rmmi_string_validator(&k.cursor, k.delimiter, k.max_length, out);
    });
}

void sms_text(Case &c) {
    text_reader(c, [](Case &k, kal_uint8 *out, kal_uint8 *) {
        return rmmi_sms_text_validator(&k.cursor, k.delimiter, k.max_length, out);
    });
}

void hex_text(Case &c) {
    text_reader(c, [](Case &k, kal_uint8 *out, kal_uint8 *cause) {
        return rmmi_hex_validator_ext(cause, &k.cursor, k.delimiter, k.delimiter2, k.max_length,
                                      out);
    });
}

/* A file name's buffer is two bytes per character. */
void filename(Case &c, kal_uint8 coding_scheme) {
    walk(c, [coding_scheme](Case &k) {
        Guarded name(2u * k.max_length);
        kal_uint16 name_length = 0xEEEE;
        kal_uint8 cause = 0xEE;
        const kal_uint32 result = rmmi_filename_validator(
            coding_scheme, &k.cursor, k.delimiter, k.delimiter2, k.max_length,
            reinterpret_cast<kal_wchar *>(name.data()), &name_length, &cause);
        check(result == 0 || result == 255);
        check(result != 0 || (name_length > 0 && name_length <= k.max_length));
        return cause;
    });
}

void filename_ira(Case &c) {
    filename(c, RMMI_CHSET_IRA);
}

void filename_ucs2(Case &c) {
    filename(c, RMMI_CHSET_UCS2);
}

/* Decoded bytes printed again give the digits back. */
void hex_decode(Case &c) {
    const size_t pairs = c.length() / 2;
    Guarded val(pairs + 2);
    if (!check_hex_value_ext(c.text.data(), val.data()) || pairs > 255)
        return;
    check(c.length() % 2 == 0 && val.data()[pairs] == 0 && val.data()[pairs + 1] == 0);
    Guarded printed(2 * pairs + 1);
    print_hex_value_ext(val.data(), printed.chars(), static_cast<kal_uint8>(pairs));
    check(printed.chars() == std::string(reinterpret_cast<char *>(c.text.data())));
}

void hex_decode_unchecked(Case &c) {
    Guarded val(c.length() / 2);
    check_hex_value(c.text.data(), val.data());
}

void hex_integer(Case &c) {
    constexpr kal_uint32 kUntouched = 0xDEADBEEF;
    kal_uint32 value = kUntouched;
    if (!rmmi_hexstring_to_integer(c.text.data(), &value))
        check(value == kUntouched);
}

void pure_ascii(Case &c) {
    Guarded val(c.length() / 2);
    string_is_pure_ascii(c.text.data(), val.data(), RMMI_CHSET_UCS2);
}

void wide_copies(Case &c) {
    Guarded wide(c.length() + 1);
    Guarded narrow(c.length() + 1);
    ascii_to_ucs2(c.text.data(), reinterpret_cast<kal_wchar *>(wide.data()));
    check(ucs2_to_ascii(reinterpret_cast<kal_wchar *>(wide.data()), narrow.data()));
    check(narrow.chars() == c.original);
}

/* Two swaps give the bytes back; an odd last byte is never touched. */
void byte_order(Case &c) {
    const kal_uint16 length = c.max_length < c.length() ? c.max_length : c.length();
    Guarded bytes(length);
    memcpy(bytes.data(), c.original.data(), length);
    rmmi_byte_order_reverse(bytes.data(), length);
    rmmi_byte_order_reverse(bytes.data(), length);
    check(memcmp(bytes.data(), c.original.data(), length) == 0);
}

/* The bytes (NULs allowed) from the input, then the zeros that end them. */
void printing(const uint8_t *raw, size_t raw_len) {
    std::vector<kal_uint8> val(raw, raw + raw_len);
    if (val.size() % 2 != 0)
        val.push_back(0);
    val.insert(val.end(), {0, 0});
    size_t pair_end = 0;
    while (val[pair_end] != 0 || val[pair_end + 1] != 0)
        ++pair_end;
    Guarded hex(2 * pair_end + 1);
    print_hex_value(val.data(), hex.chars());
    check(strlen(hex.chars()) == 2 * pair_end);

    size_t ucs2_end = 0;
    while (val[ucs2_end] != 0 || val[ucs2_end + 1] != 0)
        ucs2_end += 2;
    Guarded ucs2(2 * ucs2_end + 1);
    rmmi_print_ucs2(reinterpret_cast<kal_wchar *>(val.data()), ucs2.chars());

    const kal_uint8 count = static_cast<kal_uint8>(raw_len < 255 ? raw_len : 255);
    Guarded each(2u * count + 1);
    print_hex_value_ext(raw, each.chars(), count);
    Guarded dotted(21);
    rmmi_value2string(dotted.chars(), raw, count);
}

void number_text(Case &c) {
    check(rmmi_is_number_string(c.text.data()) ==
          (c.original.find_first_not_of("0123456789") == std::string::npos ? KAL_TRUE : KAL_FALSE));
}

struct Function {
    void (*run)(Case &c);
    bool uppercases; /* may upper-case the command text in place */
};

constexpr Function kFunctions[] = {
    {int_plain, false},      {int_ext, false},
    {int_range, false},      {int_signed, false},
    {extract_number, false}, {number_string, false},
    {string_ext, false},     {string_plain, false},
    {sms_text, false},       {hex_text, true},
    {filename_ira, false},   {filename_ucs2, false},
    {hex_decode, true},      {hex_decode_unchecked, true},
    {hex_integer, true},     {pure_ascii, true},
    {wide_copies, false},    {byte_order, false},
    {number_text, false},
};
constexpr size_t kFunctionCount = sizeof(kFunctions) / sizeof(kFunctions[0]);
/* One more choice than functions: printing takes the raw bytes, NULs included. */
constexpr size_t kChoices = kFunctionCount + 1;

constexpr kal_uint8 kDelimiters[] = {',', ';', 26, 0, '"', '\r', '\n', ' '};

kal_uint8 pick_delimiter(uint8_t byte) {
    return byte < 128 ? kDelimiters[byte % sizeof(kDelimiters)] : static_cast<kal_uint8>(byte);
}

std::string upper_cased(std::string text) {
    for (char &ch : text)
        if (ch >= 'a' && ch <= 'z')
            ch = static_cast<char>(ch - 32);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    /* The digit reader always prints what it looks at; keep it out of the fuzzer's output. */
    return freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    constexpr size_t kHeader = 6;
    if (size < kHeader)
        return 0;
    const uint8_t *raw = data + kHeader;
    const size_t raw_len = size - kHeader;
    const size_t choice = data[0] % kChoices;
    const std::string original(reinterpret_cast<const char *>(raw),
                               strnlen(reinterpret_cast<const char *>(raw), raw_len));
    Case c{pick_delimiter(data[1]),
           data[2] < 128 ? pick_delimiter(data[2] + 5) : data[2],
           static_cast<kal_uint16>((data[3] | data[4] << 8) % 600),
           static_cast<kal_uint16>(data[5] % (original.size() + 3)),
           original,
           Guarded(original.size() + 1),
           {}};
    memcpy(c.text.data(), original.c_str(), original.size() + 1);
    c.cursor.string_ptr = c.text.data();
    c.cursor.index = c.start;
    if (choice == kFunctionCount) {
        printing(raw, raw_len);
        return 0;
    }
    kFunctions[choice].run(c);
    const std::string after(reinterpret_cast<char *>(c.text.data()));
    check(after == c.original || (kFunctions[choice].uppercases && after == upper_cased(original)));
    return 0;
}
