/* The parameter toolkit a validator plug-in calls: texts, numbers and conversions, each
   into a buffer of exactly the size it is given. */
#include "test_support.h"

namespace {

using namespace rmmi_test;
using bytes = std::vector<kal_uint8>;

constexpr kal_uint8 kUnset = 0xEE;

enum member { EXT, RANGE, RANGE_NO_CAUSE, SIGNED };

kal_uint32 run(member which, rmmi_string_struct *cursor, kal_uint8 *cause, kal_uint32 max) {
    switch (which) {
    case EXT:
        return rmmi_int_validator_ext(cause, cursor, ',', '\r');
    case RANGE:
        return rmmi_int_validator_range_check(cause, cursor, ',', '\r', max);
    case RANGE_NO_CAUSE:
        return rmmi_int_validator_range_check(nullptr, cursor, ',', '\r', max);
    case SIGNED:
        return static_cast<kal_uint32>(rmmi_signed_int_validator(cause, cursor, ',', '\r'));
    }
    return 0;
}

TEST(IntegerValidators, ValueOutcomeAndCursorFollowEachMembersRules) {
    const struct {
        member which;
        const char *text;
        kal_uint16 start;
        kal_uint32 max, value;
        kal_uint8 cause; /* kUnset where the member reports none */
        kal_uint16 index;
    } cases[] = {
        {EXT, "12,5\r", 0, 0, 12, RMMI_PARSE_OK, 3},
        {EXT, "  42 ,\r", 0, 0, 255, RMMI_PARSE_ERROR, 4},
        {EXT, ",5", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 1},
        {EXT, "5", 2, 0, 255, RMMI_PARSE_NOT_FOUND, 3},  /* already past the terminator */
        {EXT, "7,  \r", 0, 0, 255, RMMI_PARSE_ERROR, 4}, /* list ends in a separator */
        {EXT, "4294967296\r", 0, 0, 0, RMMI_PARSE_OK, 11},
        {RANGE, "255\r", 0, 255, 255, RMMI_PARSE_OK, 4},
        {RANGE, "256\r", 0, 255, 255, RMMI_PARSE_ERROR, 2},
        {RANGE, "42949672950\r", 0, 4294967295u, 255, RMMI_PARSE_ERROR, 10},
        {RANGE_NO_CAUSE, "10", 0, 9, 255, kUnset, 1},
        {SIGNED, "-12\r", 0, 0, static_cast<kal_uint32>(-12), RMMI_PARSE_OK, 4},
        {SIGNED, "-,\r", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "member " << c.which << " \"" << c.text);
        cursor_fixture f(c.text, c.start);
        kal_uint8 cause = kUnset;
        EXPECT_EQ(run(c.which, &f.cursor, &cause, c.max), c.value);
        EXPECT_EQ(cause, c.cause);
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

TEST(IntegerValidators, CursorStopsAtTheLastPositionOfAnOverlongText) {
    cursor_fixture f(std::string(70000, '1'));
    kal_uint8 cause = kUnset;
    rmmi_int_validator_ext(&cause, &f.cursor, ',', '\r');
    EXPECT_EQ(f.cursor.index, 0xFFFF);
    EXPECT_EQ(rmmi_int_validator_ext(&cause, &f.cursor, ',', '\r'), 255u);
    EXPECT_EQ(f.cursor.index, 0xFFFF);
}

TEST(ExtractNumberString, CopiesDialDigitsUpToDelimiterOrLength) {
    const struct {
        const char *text;
        kal_uint8 max_length;
        kal_bool ok;
        const char *copied;
        kal_uint16 index;
    } cases[] = {
        {"+49 T89;", 8, KAL_TRUE, "+4989", 7},
        {"+49 T89;", 4, KAL_TRUE, "+49", 3}, /* the rest is left unread */
        {"1*#pPiIgG!t;", 20, KAL_TRUE, "1*#pPiIgG", 11},
        {"123", 8, KAL_FALSE, "<unterminated>", 3}, /* the end of the text is illegal */
    };
    for (const auto &c : cases) {
        cursor_fixture f(c.text);
        GuardedBuffer out(c.max_length);
        EXPECT_EQ(extract_number_string(&f.cursor, ',', out.data(), c.max_length), c.ok) << c.text;
        EXPECT_EQ(out.text(), c.copied) << c.text;
        EXPECT_TRUE(out.guards_intact()) << c.text;
        EXPECT_EQ(f.cursor.index, c.index) << c.text;
    }
}

enum text_member { QUOTED, RESTRICTED, SMS, HEX };

kal_uint32 run(text_member which, rmmi_string_struct *cursor, kal_uint8 *cause,
               kal_uint16 max_length, kal_uint8 *out) {
    switch (which) {
    case QUOTED:
        return rmmi_string_validator_ext(cause, cursor, ',', '\r', max_length, out);
    case RESTRICTED:
        return rmmi_string_validator(cursor, ',', max_length, out);
    case SMS:
        return rmmi_sms_text_validator(cursor, 26, max_length, out);
    case HEX:
        return rmmi_hex_validator_ext(cause, cursor, ',', '\r', max_length, out);
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
        {QUOTED, "\"12345678\"\r", 8, 255, RMMI_PARSE_TEXT_TOO_LONG, "1234567", 8},
        {QUOTED, "\"1234567", 8, 255, RMMI_PARSE_TEXT_TOO_LONG, "1234567", 8},
        {QUOTED, "\"123456", 8, 255, RMMI_PARSE_ERROR, "123456", 7},
        {QUOTED, "\"a\"\r", 0, 255, RMMI_PARSE_TEXT_TOO_LONG, "<unterminated>", 1},
        {QUOTED, "\"\",\r", 8, 255, RMMI_PARSE_OK, "", 3},
        {QUOTED, "\"abc\"x", 8, 255, RMMI_PARSE_ERROR, "abc", 5},
        {RESTRICTED, "\"a;b c#*[]<>_^:./-+\" ,", 20, 0, kUnset, "a;b c#*[]<>_^:./-+", 22},
        {RESTRICTED, "\"a=b\",\r", 8, 255, kUnset, "a", 2},
        {RESTRICTED, "\"abcdefgh\",", 8, 255, kUnset, "abcdefg", 8},
        {SMS, "he\"l o\x1a", 8, 0, kUnset, "he\"l o", 7},
        {SMS, "hello world\x1a", 8, 255, kUnset, "hello w", 7},
        {SMS, "hello", 8, 255, kUnset, "hello", 5},
        {HEX, "  1a2B\r", 8, 0, RMMI_PARSE_OK, "1A2B", 7},
        {HEX, "12G\r", 8, 255, RMMI_PARSE_ERROR, "12", 2},
        {HEX, "123\r", 3, 255, RMMI_PARSE_ERROR, "12", 2},
        {HEX, "1\r", 0, 255, RMMI_PARSE_ERROR, "<unterminated>", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "member " << c.which << " \"" << c.text << "\"");
        cursor_fixture f(c.text);
        GuardedBuffer out(c.max_length);
        kal_uint8 cause = kUnset;
        EXPECT_EQ(run(c.which, &f.cursor, &cause, c.max_length, out.data()), c.result);
        EXPECT_EQ(cause, c.cause);
        EXPECT_EQ(out.text(), c.stored);
        EXPECT_TRUE(out.guards_intact());
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

/* The name fills exactly 2 * max_length bytes, guarded; returns them with the length. */
struct Name {
    kal_uint32 result;
    kal_uint8 cause;
    kal_uint16 length;
    bytes name;
};
Name read_name(kal_uint8 coding_scheme, const std::string &text, kal_uint16 max_length) {
    cursor_fixture f(text);
    GuardedBuffer out(2u * max_length);
    Name got{0, kUnset, 0xBEEF, {}};
    got.result =
        rmmi_filename_validator(coding_scheme, &f.cursor, ',', '\r', max_length,
                                reinterpret_cast<kal_wchar *>(out.data()), &got.length, &got.cause);
    EXPECT_TRUE(out.guards_intact()) << text;
    got.name.assign(out.data(), out.data() + out.size());
    return got;
}

TEST(FilenameValidator, DecodesStoresAndBoundsTheName) {
    const struct {
        kal_uint8 coding_scheme;
        const char *text;
        kal_uint32 result;
        kal_uint8 cause;
        kal_uint16 length;
        bytes name; /* all 8 bytes for max_length 4 */
    } cases[] = {
        {RMMI_CHSET_UCS2, "\"00410042\"\r", 0, RMMI_PARSE_OK, 3, {0x41, 0, 0x42, 0, 0, 0, 0, 0}},
        /* Half a character at the largest length: 7 bytes, one zero left to end them. */
        {RMMI_CHSET_UCS2,
         "\"00410042004300\"\r",
         0,
         RMMI_PARSE_OK,
         4,
         {'A', 0, 'B', 0, 'C', 0, 0, 0}},
        {RMMI_CHSET_IRA, "\"a.t\"\r", 0, RMMI_PARSE_OK, 4, {'a', '.', 't', 0, 0, 0, 0, 0}},
        {1, "\"a.txt\"\r", 255, RMMI_PARSE_ERROR, 0, bytes(8, 0)},
        {RMMI_CHSET_UCS2, "\"0041004\"\r", 255, RMMI_PARSE_ERROR, 0, bytes(8, 0)},
        {RMMI_CHSET_IRA, "\"abcd\"\r", 255, RMMI_PARSE_TEXT_TOO_LONG, 0, bytes(8, 0)},
    };
    for (const auto &c : cases) {
        const Name got = read_name(c.coding_scheme, c.text, 4);
        EXPECT_EQ(got.result, c.result) << c.text;
        EXPECT_EQ(got.cause, c.cause) << c.text;
        EXPECT_EQ(got.length, c.length) << c.text;
        EXPECT_EQ(got.name, c.name) << c.text;
    }
    /* 498 digits fit the 500-byte work buffer and decode into 249 bytes. */
    std::string digits = "\"";
    for (int i = 0; i < 124; ++i)
        digits += "0061";
    for (kal_uint16 max_length : {125, 40000}) {
        const Name got = read_name(RMMI_CHSET_UCS2, digits + "00\"\r", max_length);
        EXPECT_EQ(got.length, 125);
        EXPECT_EQ(bytes(got.name.begin() + 246, got.name.begin() + 250), (bytes{0x61, 0, 0, 0}));
    }
}

TEST(HexConversions, DecodingStopsAtTheTerminatorAndWritesOnlyWhatItDecoded) {
    bytes odd = text_bytes("0a1"), short_group = text_bytes("004");
    bytes val(4, kGuard);
    EXPECT_EQ(check_hex_value_ext(odd.data(), val.data()), KAL_FALSE);
    EXPECT_EQ(val, (bytes{0x0A, kGuard, kGuard, kGuard}));
    EXPECT_EQ(string_is_pure_ascii(short_group.data(), val.data(), RMMI_CHSET_UCS2), KAL_FALSE);
}

TEST(TextCopies, OddLengthsAndLongTextsStayInBounds) {
    bytes val = {0x00, 0x41, 0x00, 0x42};
    rmmi_byte_order_reverse(val.data(), 3);
    EXPECT_EQ(val, (bytes{0x41, 0x00, 0x00, 0x42}));

    /* Longer than an 8-bit position can count. */
    const std::string long_text(300, 'q');
    const bytes src = text_bytes(long_text);
    GuardedBuffer wide(301), back(301);
    ascii_to_ucs2(src.data(), reinterpret_cast<kal_wchar *>(wide.data()));
    EXPECT_EQ(wide.text(), long_text);
    ucs2_to_ascii(reinterpret_cast<const kal_wchar *>(wide.data()), back.data());
    EXPECT_EQ(back.text(), long_text);
    EXPECT_TRUE(wide.guards_intact() && back.guards_intact());
}

} // namespace
