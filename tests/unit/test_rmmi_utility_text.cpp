#include "rmmi_utility_fixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <vector>

namespace {

constexpr kal_uint8 kComma = ',';
constexpr kal_uint8 kCr = '\r';
constexpr kal_uint8 kCtrlZ = 26;
constexpr kal_uint8 kGuard = 0xAA;
constexpr kal_uint8 kUnset = 0xEE;

/* An output buffer of max_length bytes followed by guard bytes that must stay untouched. */
struct output_buffer {
    std::vector<kal_uint8> bytes;
    size_t size;

    explicit output_buffer(size_t max_length) : bytes(max_length + 4, kGuard), size(max_length) {}
    kal_uint8 *data() { return bytes.data(); }
    std::string text() const {
        return std::string(reinterpret_cast<const char *>(bytes.data()),
                           strnlen(reinterpret_cast<const char *>(bytes.data()), size));
    }
    bool guards_intact() const {
        for (size_t i = size; i < bytes.size(); ++i) {
            if (bytes[i] != kGuard)
                return false;
        }
        return true;
    }
};

enum text_member { QUOTED_EXT, RESTRICTED, SMS, HEX };

struct text_case {
    text_member which;
    const char *text;
    kal_uint16 start;
    kal_uint16 max_length;
    kal_uint32 result;
    kal_uint8 cause; /* kUnset where the member reports none */
    const char *stored;
    kal_uint16 index;
};

kal_uint32 run(const text_case &c, rmmi_string_struct *cursor, kal_uint8 *cause, kal_uint8 *out) {
    switch (c.which) {
    case QUOTED_EXT:
        return rmmi_string_validator_ext(cause, cursor, kComma, kCr, c.max_length, out);
    case RESTRICTED:
        return rmmi_string_validator(cursor, kComma, c.max_length, out);
    case SMS:
        return rmmi_sms_text_validator(cursor, kCtrlZ, c.max_length, out);
    case HEX:
        return rmmi_hex_validator_ext(cause, cursor, kComma, kCr, c.max_length, out);
    }
    return 0;
}

const text_case kTextCases[] = {
    {QUOTED_EXT, "\"abc\",5", 0, 8, 0, RMMI_PARSE_OK, "abc", 6},
    {QUOTED_EXT, "  \"ab\"  ,x", 0, 8, 0, RMMI_PARSE_OK, "ab", 9},
    {QUOTED_EXT, "\"a b;\"\r", 0, 8, 0, RMMI_PARSE_OK, "a b;", 7},
    /* Escapes: the only way to a quote or a backslash; one stored byte each. */
    {QUOTED_EXT, "\"\\22\"\r", 0, 8, 0, RMMI_PARSE_OK, "\"", 6},
    {QUOTED_EXT, "\"\\5c\\41\"\r", 0, 8, 0, RMMI_PARSE_OK, "\\A", 9},
    {QUOTED_EXT, "\"123456\\41\"\r", 0, 8, 0, RMMI_PARSE_OK, "123456A", 12},
    {QUOTED_EXT, "\"\\2G\"\r", 0, 8, 255, RMMI_PARSE_ERROR, "", 3},
    {QUOTED_EXT, "\"a\\G2\"\r", 0, 8, 255, RMMI_PARSE_ERROR, "a", 3},
    {QUOTED_EXT, "\"\\4", 0, 8, 255, RMMI_PARSE_ERROR, "", 3},
    /* Too long against malformed. */
    {QUOTED_EXT, "\"1234567\"\r", 0, 8, 0, RMMI_PARSE_OK, "1234567", 10},
    {QUOTED_EXT, "\"12345678\"\r", 0, 8, 255, RMMI_PARSE_TEXT_TOO_LONG, "1234567", 8},
    {QUOTED_EXT, "\"1234567\\41\"\r", 0, 8, 255, RMMI_PARSE_TEXT_TOO_LONG, "1234567", 8},
    {QUOTED_EXT, "\"1234567", 0, 8, 255, RMMI_PARSE_TEXT_TOO_LONG, "1234567", 8},
    {QUOTED_EXT, "\"123456", 0, 8, 255, RMMI_PARSE_ERROR, "123456", 7},
    {QUOTED_EXT, "\"a\"\r", 0, 0, 255, RMMI_PARSE_TEXT_TOO_LONG, nullptr, 1},
    /* Empty, omitted and unquoted. */
    {QUOTED_EXT, "\"\",\r", 0, 8, 255, RMMI_PARSE_OK, "", 3},
    {QUOTED_EXT, ",\r", 0, 8, 255, RMMI_PARSE_NOT_FOUND, "", 1},
    {QUOTED_EXT, " \r", 0, 8, 255, RMMI_PARSE_NOT_FOUND, "", 2},
    {QUOTED_EXT, "", 0, 8, 255, RMMI_PARSE_NOT_FOUND, "", 0},
    {QUOTED_EXT, "ab", 5, 8, 255, RMMI_PARSE_NOT_FOUND, "", 5},
    {QUOTED_EXT, "abc\r", 0, 8, 255, RMMI_PARSE_ERROR, "", 0},
    {QUOTED_EXT, "   ", 0, 8, 255, RMMI_PARSE_ERROR, "", 3},
    {QUOTED_EXT, "\"abc\"x", 0, 8, 255, RMMI_PARSE_ERROR, "abc", 5},
    {QUOTED_EXT, "\"abc\"", 0, 8, 255, RMMI_PARSE_ERROR, "abc", 5},

    {RESTRICTED, "\"ab+12\",", 0, 8, 0, kUnset, "ab+12", 8},
    {RESTRICTED, "\"a;b c#*[]<>_^:./-\" ,", 0, 20, 0, kUnset, "a;b c#*[]<>_^:./-", 21},
    {RESTRICTED, "\"a=b\",\r", 0, 8, 255, kUnset, "a", 2},
    {RESTRICTED, "\"a!b\",", 0, 8, 255, kUnset, "a", 2},
    {RESTRICTED, "\"a\\41\",", 0, 8, 255, kUnset, "a", 2},
    {RESTRICTED, ",5", 0, 8, 255, kUnset, "", 1},
    {RESTRICTED, "x,", 0, 8, 255, kUnset, "", 0},
    {RESTRICTED, "\"\",", 0, 8, 255, kUnset, "", 3},
    {RESTRICTED, "\"abcdefg\",", 0, 8, 0, kUnset, "abcdefg", 10},
    {RESTRICTED, "\"abcdefgh\",", 0, 8, 255, kUnset, "abcdefg", 8},
    {RESTRICTED, "\"ab\"\r", 0, 8, 255, kUnset, "ab", 4},
    {RESTRICTED, "\"ab", 0, 8, 255, kUnset, "ab", 3},

    {SMS, "hello\x1a", 0, 8, 0, kUnset, "hello", 6},
    {SMS, "\x1a", 0, 8, 0, kUnset, "", 1},
    {SMS, " a\"b,\x1a", 0, 8, 0, kUnset, " a\"b,", 6},
    {SMS, "hello", 0, 8, 255, kUnset, "hello", 5},
    {SMS, "hello world\x1a", 0, 8, 255, kUnset, "hello w", 7},
    {SMS, "abcdefg\x1a", 0, 8, 0, kUnset, "abcdefg", 8},
    {SMS, "a\x1a", 0, 1, 255, kUnset, "", 0},
    {SMS, "\x1a", 0, 0, 0, kUnset, nullptr, 1},

    {HEX, "1a2B\r", 0, 8, 0, RMMI_PARSE_OK, "1A2B", 5},
    {HEX, "  ff,1", 0, 8, 0, RMMI_PARSE_OK, "FF", 5},
    {HEX, "ab", 0, 8, 0, RMMI_PARSE_OK, "AB", 3},
    {HEX, "12G\r", 0, 8, 255, RMMI_PARSE_ERROR, "12", 2},
    {HEX, "12 ,\r", 0, 8, 255, RMMI_PARSE_ERROR, "12", 2},
    {HEX, "12\r", 0, 3, 0, RMMI_PARSE_OK, "12", 3},
    {HEX, "123\r", 0, 3, 255, RMMI_PARSE_ERROR, "12", 2},
    {HEX, "1\r", 0, 1, 255, RMMI_PARSE_ERROR, "", 0},
    {HEX, "1\r", 0, 0, 255, RMMI_PARSE_ERROR, nullptr, 0},
    {HEX, ",\r", 0, 8, 255, RMMI_PARSE_NOT_FOUND, "", 1},
    {HEX, "  \r", 0, 8, 255, RMMI_PARSE_NOT_FOUND, "", 3},
    {HEX, "", 0, 8, 255, RMMI_PARSE_NOT_FOUND, "", 1},
};

TEST(TextValidators, ResultOutcomeStoredTextAndCursor) {
    for (const text_case &c : kTextCases) {
        SCOPED_TRACE(testing::Message() << "member " << c.which << " text \"" << c.text
                                        << "\" max_length " << c.max_length);
        cursor_fixture f(c.text, c.start);
        output_buffer out(c.max_length);
        kal_uint8 cause = kUnset;
        EXPECT_EQ(run(c, &f.cursor, &cause, out.data()), c.result);
        EXPECT_EQ(cause, c.cause);
        if (c.stored != nullptr) {
            EXPECT_EQ(out.text(), c.stored);
            EXPECT_EQ(out.bytes[out.text().size()], 0) << "output not terminated";
        }
        EXPECT_TRUE(out.guards_intact()) << "written past max_length";
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

TEST(TextValidators, EscapeCanStoreAnyByteIncludingZero) {
    cursor_fixture f("\"\\00\\ff\\0A\"\r");
    output_buffer out(8);
    kal_uint8 cause = kUnset;
    EXPECT_EQ(rmmi_string_validator_ext(&cause, &f.cursor, kComma, kCr, 8, out.data()), 0u);
    EXPECT_EQ(cause, RMMI_PARSE_OK);
    EXPECT_EQ(std::vector<kal_uint8>(out.bytes.begin(), out.bytes.begin() + 4),
              (std::vector<kal_uint8>{0x00, 0xFF, 0x0A, 0x00}));
}

TEST(HexValidator, UpperCasesTheWholeCommandText) {
    cursor_fixture f("+cmd=\"ab\",1a2b,ff\r", 10);
    output_buffer out(8);
    kal_uint8 cause = kUnset;
    EXPECT_EQ(rmmi_hex_validator_ext(&cause, &f.cursor, kComma, kCr, 8, out.data()), 0u);
    EXPECT_EQ(out.text(), "1A2B");
    EXPECT_EQ(f.string(), "+CMD=\"AB\",1A2B,FF\r");
    EXPECT_EQ(f.cursor.index, 15);
    /* A failing parameter upper-cases too. */
    cursor_fixture g("x,zz\r", 2);
    EXPECT_EQ(rmmi_hex_validator_ext(&cause, &g.cursor, kComma, kCr, 8, out.data()), 255u);
    EXPECT_EQ(cause, RMMI_PARSE_ERROR);
    EXPECT_EQ(g.string(), "X,ZZ\r");
}

struct filename_result {
    kal_uint32 result;
    kal_uint8 cause;
    kal_uint16 length;
    std::vector<kal_uint8> bytes; /* 2 * max_length bytes of filename */
    bool guards_intact;
};

filename_result read_filename(kal_uint8 coding_scheme, const std::string &text,
                              kal_uint16 max_length) {
    cursor_fixture f(text);
    output_buffer out(2u * max_length);
    filename_result r{};
    r.cause = kUnset;
    r.length = 0xBEEF;
    r.result =
        rmmi_filename_validator(coding_scheme, &f.cursor, kComma, kCr, max_length,
                                reinterpret_cast<kal_wchar *>(out.data()), &r.length, &r.cause);
    r.bytes.assign(out.bytes.begin(), out.bytes.begin() + 2 * max_length);
    r.guards_intact = out.guards_intact();
    return r;
}

TEST(FilenameValidator, Ucs2NameIsDecodedAndStoredLowByteFirst) {
    const filename_result r = read_filename(RMMI_CHSET_UCS2, "\"00410042\"\r", 4);
    EXPECT_EQ(r.result, 0u);
    EXPECT_EQ(r.cause, RMMI_PARSE_OK);
    EXPECT_EQ(r.length, 3);
    EXPECT_EQ(r.bytes, (std::vector<kal_uint8>{0x41, 0x00, 0x42, 0x00, 0, 0, 0, 0}));

    const filename_result lower = read_filename(RMMI_CHSET_UCS2, "\"00e9\"\r", 2);
    EXPECT_EQ(lower.result, 0u);
    EXPECT_EQ(lower.bytes, (std::vector<kal_uint8>{0xE9, 0x00, 0, 0}));
}

TEST(FilenameValidator, IraNameIsCopiedWithItsTerminatorCounted) {
    const filename_result r = read_filename(RMMI_CHSET_IRA, "\"a.txt\"\r", 8);
    EXPECT_EQ(r.result, 0u);
    EXPECT_EQ(r.cause, RMMI_PARSE_OK);
    EXPECT_EQ(r.length, 6);
    std::vector<kal_uint8> expected(16, 0);
    for (size_t i = 0; i < 5; ++i)
        expected[i] = static_cast<kal_uint8>("a.txt"[i]);
    EXPECT_EQ(r.bytes, expected);
}

TEST(FilenameValidator, RefusedNamesLeaveAClearedBuffer) {
    const std::vector<kal_uint8> cleared(8, 0);
    const struct {
        kal_uint8 coding_scheme;
        const char *text;
        kal_uint8 cause;
    } cases[] = {
        {1, "\"a.txt\"\r", RMMI_PARSE_ERROR},
        {RMMI_CHSET_UCS2, "\"0041004\"\r", RMMI_PARSE_ERROR},  /* odd digit count */
        {RMMI_CHSET_UCS2, "\"0041004G\"\r", RMMI_PARSE_ERROR}, /* not hexadecimal */
        {RMMI_CHSET_UCS2, "\"\"\r", RMMI_PARSE_OK},            /* empty name */
        {RMMI_CHSET_IRA, "\"\"\r", RMMI_PARSE_OK},
        {RMMI_CHSET_IRA, "\"abcd\"\r", RMMI_PARSE_TEXT_TOO_LONG},
        {RMMI_CHSET_IRA, "a\r", RMMI_PARSE_ERROR},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const filename_result r = read_filename(c.coding_scheme, c.text, 4);
        EXPECT_EQ(r.result, 255u);
        EXPECT_EQ(r.cause, c.cause);
        EXPECT_EQ(r.length, 0);
        EXPECT_EQ(r.bytes, cleared);
        EXPECT_TRUE(r.guards_intact);
    }
}

TEST(FilenameValidator, Ucs2NameWithHalfCharacterStaysWithinTwiceMaxLength) {
    /* 14 digits in a 16-byte work buffer: 7 bytes in an 8-byte name, no room for both
       terminator bytes. */
    const filename_result r = read_filename(RMMI_CHSET_UCS2, "\"00410042004300\"\r", 4);
    EXPECT_EQ(r.result, 0u);
    EXPECT_EQ(r.length, 4);
    EXPECT_EQ(r.bytes, (std::vector<kal_uint8>{0x41, 0x00, 0x42, 0x00, 0x43, 0x00, 0x00, 0x00}));
    EXPECT_TRUE(r.guards_intact);

    /* The 500-byte work buffer of a long name: 498 digits into 250 bytes. */
    std::string digits;
    for (int i = 0; i < 124; ++i)
        digits += "0061";
    digits += "00";
    const filename_result capped = read_filename(RMMI_CHSET_UCS2, "\"" + digits + "\"\r", 125);
    EXPECT_EQ(capped.result, 0u);
    EXPECT_EQ(capped.length, 498 / 4 + 1);
    EXPECT_EQ(capped.bytes[246], 0x61);
    EXPECT_EQ(capped.bytes[247], 0x00);
    EXPECT_EQ(capped.bytes[248], 0x00);
    EXPECT_TRUE(capped.guards_intact);

    /* Beyond the work buffer: too long, whatever the name's own room. */
    const filename_result too_long = read_filename(RMMI_CHSET_UCS2, "\"" + digits + "00\"\r", 200);
    EXPECT_EQ(too_long.result, 255u);
    EXPECT_EQ(too_long.cause, RMMI_PARSE_TEXT_TOO_LONG);
}

TEST(FilenameValidator, Ucs2BytesAreSwappedForAnyMaxLength) {
    /* 2 * max_length does not fit 16 bits here. */
    const filename_result r = read_filename(RMMI_CHSET_UCS2, "\"00410042\"\r", 40000);
    EXPECT_EQ(r.result, 0u);
    EXPECT_EQ(std::vector<kal_uint8>(r.bytes.begin(), r.bytes.begin() + 6),
              (std::vector<kal_uint8>{0x41, 0x00, 0x42, 0x00, 0x00, 0x00}));
}

TEST(HexConversions, CheckHexValueExtDecodesPairsAndTerminates) {
    const struct {
        const char *text;
        kal_bool ok;
        std::vector<kal_uint8> val; /* the first bytes of val afterwards */
        const char *upper;
    } cases[] = {
        {"0A1B", KAL_TRUE, {0x0A, 0x1B, 0x00, 0x00, kGuard}, "0A1B"},
        {"0a1b", KAL_TRUE, {0x0A, 0x1B, 0x00, 0x00, kGuard}, "0A1B"},
        {"", KAL_TRUE, {0x00, 0x00, kGuard}, ""},
        {"0a1", KAL_FALSE, {0x0A, kGuard}, "0A1"},
        {"0G12", KAL_FALSE, {kGuard}, "0G12"},
        {"g0", KAL_FALSE, {kGuard}, "G0"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<kal_uint8> str = text_bytes(c.text);
        std::vector<kal_uint8> val(8, kGuard);
        EXPECT_EQ(check_hex_value_ext(str.data(), val.data()), c.ok);
        EXPECT_EQ(std::vector<kal_uint8>(val.begin(), val.begin() + c.val.size()), c.val);
        EXPECT_EQ(as_string(str), c.upper);
    }
}

TEST(HexConversions, CheckHexValueTrustsItsInputAndNeverPassesTheTerminator) {
    const struct {
        const char *text;
        std::vector<kal_uint8> val;
    } cases[] = {
        {"0a1B", {0x0A, 0x1B, kGuard}},
        {"", {kGuard}},
        {"ABC", {0xAB, kGuard}}, /* the lone last digit is left out */
        {"G1", {0x01, kGuard}},  /* G counts as 16: (16 * 16 + 1) modulo 256 */
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<kal_uint8> str = text_bytes(c.text);
        std::vector<kal_uint8> val(4, kGuard);
        check_hex_value(str.data(), val.data());
        EXPECT_EQ(std::vector<kal_uint8>(val.begin(), val.begin() + c.val.size()), c.val);
    }
}

TEST(HexConversions, HexStringToIntegerKeepsTheLastEightDigits) {
    const struct {
        const char *text;
        kal_bool ok;
        kal_uint32 value;
    } cases[] = {
        {"ff", KAL_TRUE, 255},
        {"123456789", KAL_TRUE, 0x23456789},
        {"FFFFFFFF", KAL_TRUE, 0xFFFFFFFF},
        {"", KAL_TRUE, 0},
        {"12Z", KAL_FALSE, 0xDEADBEEF},
        {"1 2", KAL_FALSE, 0xDEADBEEF},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<kal_uint8> str = text_bytes(c.text);
        kal_uint32 value = 0xDEADBEEF;
        EXPECT_EQ(rmmi_hexstring_to_integer(str.data(), &value), c.ok);
        EXPECT_EQ(value, c.value);
    }
}

TEST(HexConversions, PureAsciiUcs2TextCopiesLowDigits) {
    const struct {
        const char *text;
        kal_uint8 dcs;
        kal_bool ok;
        const char *val; /* val's first bytes afterwards */
    } cases[] = {
        {"00410042", RMMI_CHSET_UCS2, KAL_TRUE, "4142"},
        {"00e9", RMMI_CHSET_UCS2, KAL_TRUE, "E9"},
        {"", RMMI_CHSET_UCS2, KAL_TRUE, ""},
        {"00410142", RMMI_CHSET_UCS2, KAL_FALSE, "41"},
        {"00410042", RMMI_CHSET_IRA, KAL_FALSE, ""},
        {"004", RMMI_CHSET_UCS2, KAL_FALSE, ""},
        {"00", RMMI_CHSET_UCS2, KAL_FALSE, ""},
        {"0", RMMI_CHSET_UCS2, KAL_FALSE, ""},
        {"004G", RMMI_CHSET_UCS2, KAL_FALSE, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<kal_uint8> str = text_bytes(c.text);
        std::vector<kal_uint8> val(8, 0);
        EXPECT_EQ(string_is_pure_ascii(str.data(), val.data(), c.dcs), c.ok);
        EXPECT_EQ(as_string(val), c.val);
    }
}

TEST(HexConversions, PureAsciiExplainsRefusalAtDebugLevel) {
    std::vector<kal_uint8> not_ascii = text_bytes("00410142");
    std::vector<kal_uint8> bad_digit = text_bytes("004x");
    std::vector<kal_uint8> val(8, 0);
    testing::internal::CaptureStdout();
    kal_init(KAL_DBG_DBG);
    string_is_pure_ascii(not_ascii.data(), val.data(), RMMI_CHSET_UCS2);
    string_is_pure_ascii(bad_digit.data(), val.data(), RMMI_CHSET_UCS2);
    kal_init(0);
    const std::regex expected("dbg = \\[WARNING, ERROR, INFO, DBG\\]\r\n"
                              "\\[KERV\\] <string_is_pure_ascii:[0-9]+>"
                              "INFO_STRING_IS_PURE_ASCII_STRING_IS_NOT_STRATING_WITH_0X00\r\n"
                              "\\[KERV\\] <string_is_pure_ascii:[0-9]+>"
                              "i=\\[0\\], str\\[i\\+3\\]=\\[X\\]\r\n");
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_match(printed, expected)) << printed;
}

TEST(TextValidators, TracesAtFunctionLevel) {
    cursor_fixture f("\"a\"\r");
    cursor_fixture g("ab\r");
    output_buffer out(8);
    kal_uint8 cause = kUnset;
    std::vector<kal_uint8> hex = text_bytes("0a");
    std::vector<kal_uint8> val(4, 0);
    testing::internal::CaptureStdout();
    kal_init(KAL_DBG_FUNCTION);
    rmmi_string_validator_ext(&cause, &f.cursor, kComma, kCr, 8, out.data());
    rmmi_hex_validator_ext(&cause, &g.cursor, kComma, kCr, 8, out.data());
    check_hex_value_ext(hex.data(), val.data());
    kal_init(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "dbg = [WARNING, ERROR, INFO, FUNCTION, DBG]\r\n"
              "[KERV] <FUNC_RMMI_STRING_VALIDATOR_ENTRY>\r\n"
              "[KERV] <FUNC_TOUPPER_ENTRY>\r\n"
              "[KERV] <FUNC_CHECK_HEX_VALUE_ENTRY>\r\n"
              "[KERV] <FUNC_TOUPPER_ENTRY>\r\n");
}

TEST(TextValidators, NullPointersStopTheProcess) {
    cursor_fixture f("\"a\"\r");
    kal_uint8 cause = 0;
    kal_uint8 out[4];
    EXPECT_DEATH(rmmi_string_validator_ext(&cause, &f.cursor, kComma, kCr, 4, nullptr),
                 "\\(str != \\(\\(void \\*\\)0\\)\\) && \\(source_string_ptr != "
                 "\\(\\(void \\*\\)0\\)\\) && \\(error_cause != \\(\\(void \\*\\)0\\)\\)");
    EXPECT_DEATH(rmmi_hex_validator_ext(nullptr, &f.cursor, kComma, kCr, 4, out), "error_cause");
    EXPECT_DEATH(check_hex_value_ext(out, nullptr),
                 "\\(str != \\(\\(void \\*\\)0\\)\\) && \\(val != \\(\\(void \\*\\)0\\)\\)");
}

} // namespace
