#include "test_support.h"

namespace {

using namespace rmmi_test;

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

} // namespace
