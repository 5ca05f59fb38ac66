#include "test_support.h"

namespace {

using namespace rmmi_test;

constexpr kal_uint8 kComma = ',';
constexpr kal_uint8 kCr = '\r';
constexpr kal_uint8 kUnset = 0xEE;

enum member { PLAIN, EXT, RANGE, RANGE_NO_CAUSE, SIGNED };

kal_uint32 run(member which, rmmi_string_struct *cursor, kal_uint8 *cause, kal_uint32 max) {
    switch (which) {
    case PLAIN:
        return rmmi_int_validator(cursor, kComma, kCr);
    case EXT:
        return rmmi_int_validator_ext(cause, cursor, kComma, kCr);
    case RANGE:
        return rmmi_int_validator_range_check(cause, cursor, kComma, kCr, max);
    case RANGE_NO_CAUSE:
        return rmmi_int_validator_range_check(nullptr, cursor, kComma, kCr, max);
    case SIGNED:
        return static_cast<kal_uint32>(rmmi_signed_int_validator(cause, cursor, kComma, kCr));
    }
    return 0;
}

TEST(IntegerValidators, ValueOutcomeAndCursorFollowEachMembersRules) {
    const struct {
        member which;
        const char *text;
        kal_uint16 start;
        kal_uint32 max;
        kal_uint32 value;
        kal_uint8 cause; /* kUnset where the member reports none */
        kal_uint16 index;
    } cases[] = {
        {EXT, "12,5\r", 0, 0, 12, RMMI_PARSE_OK, 3},
        {EXT, "  42 ,\r", 0, 0, 255, RMMI_PARSE_ERROR, 4},
        {EXT, "255\r", 0, 0, 255, RMMI_PARSE_OK, 4}, /* a value, told apart by the outcome */
        {EXT, ",5", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 1},
        {EXT, "5", 2, 0, 255, RMMI_PARSE_NOT_FOUND, 3}, /* already past the terminator */
        {EXT, "1a,5", 0, 0, 255, RMMI_PARSE_ERROR, 1},
        {EXT, "7,  \r", 0, 0, 255, RMMI_PARSE_ERROR, 4}, /* list ends in a separator */
        {PLAIN, "7,  \r", 0, 0, 7, kUnset, 2},
        {EXT, "4294967296\r", 0, 0, 0, RMMI_PARSE_OK, 11},
        {RANGE, "255\r", 0, 255, 255, RMMI_PARSE_OK, 4},
        {RANGE, "256\r", 0, 255, 255, RMMI_PARSE_ERROR, 2},
        {RANGE, "7\r", 0, 5, 255, RMMI_PARSE_ERROR, 0},
        {RANGE, "007\r", 0, 7, 7, RMMI_PARSE_OK, 4},
        {RANGE, "42949672950\r", 0, 4294967295u, 255, RMMI_PARSE_ERROR, 10},
        {RANGE_NO_CAUSE, "10", 0, 9, 255, kUnset, 1},
        {SIGNED, "-12\r", 0, 0, static_cast<kal_uint32>(-12), RMMI_PARSE_OK, 4},
        {SIGNED, "-,\r", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 2},
        {SIGNED, "4294967295\r", 0, 0, static_cast<kal_uint32>(-1), RMMI_PARSE_OK, 11},
        {SIGNED, "7,\r", 0, 0, 7, RMMI_PARSE_OK, 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "member " << c.which << " \"" << c.text << "\"");
        cursor_fixture f(c.text, c.start);
        kal_uint8 cause = kUnset;
        EXPECT_EQ(run(c.which, &f.cursor, &cause, c.max), c.value);
        EXPECT_EQ(cause, c.cause);
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

TEST(IntegerValidators, CursorStopsAtLastPositionOfAnOverlongText) {
    cursor_fixture f(std::string(70000, '1'));
    kal_uint8 cause = kUnset;
    rmmi_int_validator_ext(&cause, &f.cursor, kComma, kCr);
    EXPECT_EQ(f.cursor.index, 0xFFFF);
    EXPECT_EQ(rmmi_int_validator_ext(&cause, &f.cursor, kComma, kCr), 255u);
    EXPECT_EQ(cause, RMMI_PARSE_NOT_FOUND);
    EXPECT_EQ(f.cursor.index, 0xFFFF);
}

TEST(ExtractNumber, SixteenBitValueOutcomeAndCursor) {
    const struct {
        const char *text;
        kal_uint32 max;
        bool ext; /* rmmi_extract_number_ext with delimiter2 CR */
        kal_uint32 value;
        rmmi_validator_cause_enum result;
        kal_uint16 index;
    } cases[] = {
        {"1", 1, false, 1, RMMI_PARSE_OK, 1}, /* digits only, no delimiter */
        {"2", 1, false, 0, RMMI_PARSE_ERROR, 0},
        {" 5", 9, false, 0, RMMI_PARSE_NOT_FOUND, 0},  /* no blanks before the number */
        {"1 0", 10, false, 10, RMMI_PARSE_OK, 3},      /* but blanks within it */
        {"65536", 100000, false, 0, RMMI_PARSE_OK, 5}, /* the value is 16 bits wide */
        {"1 \r", 1, true, 1, RMMI_PARSE_OK, 2},
        {"1x", 1, true, 1, RMMI_PARSE_ERROR, 1}, /* not followed by delimiter2 */
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        cursor_fixture f(c.text);
        rmmi_validator_cause_enum result = RMMI_PARSE_TEXT_TOO_LONG;
        testing::internal::CaptureStdout();
        const kal_uint32 value = c.ext ? rmmi_extract_number_ext(&f.cursor, &result, c.max, kCr)
                                       : rmmi_extract_number(&f.cursor, &result, c.max);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(value, c.value);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

TEST(ExtractNumberString, CopiesDialDigitsUpToDelimiterOrLength) {
    const struct {
        const char *text;
        kal_uint8 delimiter;
        kal_uint8 max_length;
        kal_bool ok;
        const char *copied; /* null: left unterminated or untouched */
        kal_uint16 index;
    } cases[] = {
        {"+49 T89;", ',', 8, KAL_TRUE, "+4989", 7},
        {"+49 T89;", ',', 4, KAL_TRUE, "+49", 3}, /* the rest is left unread */
        {"1,*#pPiIgG!t;", ';', 20, KAL_TRUE, "1*#pPiIgG", 12},
        {"12;", ',', 0, KAL_TRUE, nullptr, 0},
        {"123", ',', 8, KAL_FALSE, nullptr, 3}, /* the end of the text is illegal */
        {"123", 0, 8, KAL_TRUE, "123", 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        cursor_fixture f(c.text);
        output_buffer out(c.max_length);
        EXPECT_EQ(extract_number_string(&f.cursor, c.delimiter, out.data(), c.max_length), c.ok);
        if (c.copied != nullptr) {
            EXPECT_EQ(out.text(), c.copied);
        }
        EXPECT_TRUE(out.guards_intact());
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

} // namespace
