#include "test_support.h"

namespace {

using namespace rmmi_test;

constexpr kal_uint8 kComma = ',';
constexpr kal_uint8 kCr = '\r';
constexpr kal_uint8 kCtrlZ = 26;
constexpr kal_uint8 kUnset = 0xEE;

using bytes = std::vector<kal_uint8>;

enum text_member { QUOTED, RESTRICTED, SMS, HEX };

kal_uint32 run(text_member which, rmmi_string_struct *cursor, kal_uint8 *cause,
               kal_uint16 max_length, kal_uint8 *out) {
    switch (which) {
    case QUOTED:
        return rmmi_string_validator_ext(cause, cursor, kComma, kCr, max_length, out);
    case RESTRICTED:
        return rmmi_string_validator(cursor, kComma, max_length, out);
    case SMS:
        return rmmi_sms_text_validator(cursor, kCtrlZ, max_length, out);
    case HEX:
        return rmmi_hex_validator_ext(cause, cursor, kComma, kCr, max_length, out);
    }
    return 0;
}

TEST(TextValidators, ResultOutcomeStoredTextAndCursor) {
    const struct {
        text_member which;
        const char *text;
        kal_uint16 max_length;
        kal_uint32 result;
        kal_uint8 cause; /* kUnset where the member reports none */
        const char *stored;
        kal_uint16 index;
    } cases[] = {
        {QUOTED, "  \"abc\"  ,5", 8, 0, RMMI_PARSE_OK, "abc", 10},
        {QUOTED, "\"\\22\\5c\"\r", 8, 0, RMMI_PARSE_OK, "\"\\", 9}, /* escapes, either case */
        {QUOTED, "\"\\2G\"\r", 8, 255, RMMI_PARSE_ERROR, "", 3},
        {QUOTED, "\"12345678\"\r", 8, 255, RMMI_PARSE_TEXT_TOO_LONG, "1234567", 8},
        {QUOTED, "\"1234567", 8, 255, RMMI_PARSE_TEXT_TOO_LONG, "1234567", 8},
        {QUOTED, "\"123456", 8, 255, RMMI_PARSE_ERROR, "123456", 7},
        {QUOTED, "\"a\"\r", 0, 255, RMMI_PARSE_TEXT_TOO_LONG, "<unterminated>", 1},
        {QUOTED, "\"\",\r", 8, 255, RMMI_PARSE_OK, "", 3},
        {QUOTED, "", 8, 255, RMMI_PARSE_NOT_FOUND, "", 0},
        {QUOTED, "abc\r", 8, 255, RMMI_PARSE_ERROR, "", 0},
        {QUOTED, "\"abc\"x", 8, 255, RMMI_PARSE_ERROR, "abc", 5},

        {RESTRICTED, "\"a;b c#*[]<>_^:./-+\" ,", 20, 0, kUnset, "a;b c#*[]<>_^:./-+", 22},
        {RESTRICTED, "\"a=b\",\r", 8, 255, kUnset, "a", 2},
        {RESTRICTED, "\"\",", 8, 255, kUnset, "", 3},
        {RESTRICTED, "\"abcdefgh\",", 8, 255, kUnset, "abcdefg", 8},

        {SMS, "he\"l o\x1a", 8, 0, kUnset, "he\"l o", 7},
        {SMS, "\x1a", 8, 0, kUnset, "", 1},
        {SMS, "hello world\x1a", 8, 255, kUnset, "hello w", 7},

        {HEX, "  1a2B\r", 8, 0, RMMI_PARSE_OK, "1A2B", 7},
        {HEX, "12G\r", 8, 255, RMMI_PARSE_ERROR, "12", 2},
        {HEX, "123\r", 3, 255, RMMI_PARSE_ERROR, "12", 2},
        {HEX, "1\r", 0, 255, RMMI_PARSE_ERROR, "<unterminated>", 0},
        {HEX, "  \r", 8, 255, RMMI_PARSE_NOT_FOUND, "", 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "member " << c.which << " \"" << c.text << "\"");
        cursor_fixture f(c.text);
        output_buffer out(c.max_length);
        kal_uint8 cause = kUnset;
        EXPECT_EQ(run(c.which, &f.cursor, &cause, c.max_length, out.data()), c.result);
        EXPECT_EQ(cause, c.cause);
        EXPECT_EQ(out.text(), c.stored);
        EXPECT_TRUE(out.guards_intact());
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

TEST(HexValidator, UpperCasesTheWholeCommandTextWhateverTheResult) {
    cursor_fixture f("+cmd=\"ab\",zz\r", 10);
    output_buffer out(8);
    kal_uint8 cause = kUnset;
    EXPECT_EQ(rmmi_hex_validator_ext(&cause, &f.cursor, kComma, kCr, 8, out.data()), 255u);
    EXPECT_EQ(as_string(f.text.data()), "+CMD=\"AB\",ZZ\r");
}

TEST(FilenameValidator, DecodesStoresAndBoundsTheName) {
    const struct {
        kal_uint8 coding_scheme;
        const char *text;
        kal_uint16 max_length;
        kal_uint32 result;
        kal_uint8 cause;
        kal_uint16 length;
        bytes name; /* all 2 * max_length bytes */
    } cases[] = {
        {RMMI_CHSET_UCS2, "\"00410042\"\r", 4, 0, RMMI_PARSE_OK, 3, {0x41, 0, 0x42, 0, 0, 0, 0, 0}},
        {RMMI_CHSET_UCS2, "\"00e9\"\r", 2, 0, RMMI_PARSE_OK, 2, {0xE9, 0, 0, 0}},
        /* Half a character at the largest length: 7 bytes, one zero left to end them. */
        {RMMI_CHSET_UCS2,
         "\"00410042004300\"\r",
         4,
         0,
         RMMI_PARSE_OK,
         4,
         {0x41, 0, 0x42, 0, 0x43, 0, 0, 0}},
        {RMMI_CHSET_IRA, "\"a.t\"\r", 4, 0, RMMI_PARSE_OK, 4, {'a', '.', 't', 0, 0, 0, 0, 0}},
        {1, "\"a.txt\"\r", 4, 255, RMMI_PARSE_ERROR, 0, bytes(8, 0)},
        {RMMI_CHSET_UCS2, "\"0041004\"\r", 4, 255, RMMI_PARSE_ERROR, 0, bytes(8, 0)},
        {RMMI_CHSET_UCS2, "\"\"\r", 4, 255, RMMI_PARSE_OK, 0, bytes(8, 0)},
        {RMMI_CHSET_IRA, "\"abcd\"\r", 4, 255, RMMI_PARSE_TEXT_TOO_LONG, 0, bytes(8, 0)},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        cursor_fixture f(c.text);
        output_buffer out(2u * c.max_length);
        kal_uint8 cause = kUnset;
        kal_uint16 length = 0xBEEF;
        EXPECT_EQ(rmmi_filename_validator(c.coding_scheme, &f.cursor, kComma, kCr, c.max_length,
                                          reinterpret_cast<kal_wchar *>(out.data()), &length,
                                          &cause),
                  c.result);
        EXPECT_EQ(cause, c.cause);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(bytes(out.bytes.begin(), out.bytes.begin() + out.size), c.name);
        EXPECT_TRUE(out.guards_intact());
    }
}

TEST(FilenameValidator, LongUcs2NamesUseTheBoundedWorkBuffer) {
    std::string digits = "\"";
    for (int i = 0; i < 124; ++i)
        digits += "0061";
    /* 498 digits fit the 500-byte work buffer and decode into 249 of the 250 bytes. */
    for (kal_uint16 max_length : {125, 40000}) {
        cursor_fixture f(digits + "00\"\r");
        output_buffer out(2u * max_length);
        kal_uint8 cause = kUnset;
        kal_uint16 length = 0;
        EXPECT_EQ(rmmi_filename_validator(RMMI_CHSET_UCS2, &f.cursor, kComma, kCr, max_length,
                                          reinterpret_cast<kal_wchar *>(out.data()), &length,
                                          &cause),
                  0u);
        EXPECT_EQ(length, 125);
        EXPECT_EQ(bytes(out.bytes.begin() + 246, out.bytes.begin() + 250), (bytes{0x61, 0, 0, 0}));
        EXPECT_TRUE(out.guards_intact());
    }
}

TEST(HexConversions, PairsDecodeIntoBytesAndHexTextIntoIntegers) {
    const struct {
        const char *text;
        kal_bool ok;
        bytes val; /* val's first bytes after check_hex_value_ext */
    } checked[] = {
        {"0a1B", KAL_TRUE, {0x0A, 0x1B, 0, 0, kGuard}},
        {"0a1", KAL_FALSE, {0x0A, kGuard}},
        {"0G12", KAL_FALSE, {kGuard}},
    };
    for (const auto &c : checked) {
        SCOPED_TRACE(c.text);
        bytes str = text_bytes(c.text);
        bytes val(8, kGuard);
        EXPECT_EQ(check_hex_value_ext(str.data(), val.data()), c.ok);
        EXPECT_EQ(bytes(val.begin(), val.begin() + c.val.size()), c.val);
    }

    bytes odd = text_bytes("abC");
    bytes val(4, kGuard);
    check_hex_value(odd.data(), val.data());
    EXPECT_EQ(val, (bytes{0xAB, kGuard, kGuard, kGuard}));
    EXPECT_EQ(as_string(odd.data()), "ABC");

    const struct {
        const char *text;
        kal_bool ok;
        kal_uint32 value;
    } integers[] = {
        {"ff", KAL_TRUE, 255},
        {"123456789", KAL_TRUE, 0x23456789},
        {"12Z", KAL_FALSE, 0xDEADBEEF},
    };
    for (const auto &c : integers) {
        bytes str = text_bytes(c.text);
        kal_uint32 value = 0xDEADBEEF;
        EXPECT_EQ(rmmi_hexstring_to_integer(str.data(), &value), c.ok) << c.text;
        EXPECT_EQ(value, c.value) << c.text;
    }
}

TEST(HexConversions, PureAsciiUcs2TextCopiesLowDigits) {
    const struct {
        const char *text;
        kal_uint8 dcs;
        kal_bool ok;
        const char *val;
    } cases[] = {
        {"00410042", RMMI_CHSET_UCS2, KAL_TRUE, "4142"},
        {"00410142", RMMI_CHSET_UCS2, KAL_FALSE, "41"},
        {"00410042", RMMI_CHSET_IRA, KAL_FALSE, ""},
        {"004", RMMI_CHSET_UCS2, KAL_FALSE, ""},
    };
    for (const auto &c : cases) {
        bytes str = text_bytes(c.text);
        bytes val(8, 0);
        EXPECT_EQ(string_is_pure_ascii(str.data(), val.data(), c.dcs), c.ok) << c.text;
        EXPECT_EQ(as_string(val.data()), c.val) << c.text;
    }
}

} // namespace
