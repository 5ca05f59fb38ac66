#include "rmmi_utility_fixture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr kal_uint8 kComma = ',';
constexpr kal_uint8 kCr = '\r';
constexpr kal_uint8 kUnset = 0xEE;

enum member { PLAIN, EXT, RANGE, RANGE_NO_CAUSE, SIGNED };

struct int_case {
    member which;
    const char *text;
    kal_uint16 start;
    kal_uint32 max;
    kal_uint32 value;
    kal_uint8 cause; /* kUnset where the member reports none */
    kal_uint16 index;
};

kal_uint32 run(const int_case &c, rmmi_string_struct *cursor, kal_uint8 *cause) {
    switch (c.which) {
    case PLAIN:
        return rmmi_int_validator(cursor, kComma, kCr);
    case EXT:
        return rmmi_int_validator_ext(cause, cursor, kComma, kCr);
    case RANGE:
        return rmmi_int_validator_range_check(cause, cursor, kComma, kCr, c.max);
    case RANGE_NO_CAUSE:
        return rmmi_int_validator_range_check(nullptr, cursor, kComma, kCr, c.max);
    case SIGNED:
        return static_cast<kal_uint32>(rmmi_signed_int_validator(cause, cursor, kComma, kCr));
    }
    return 0;
}

const int_case kIntCases[] = {
    /* The cursor lands on the next parameter, or one past the line end. */
    {EXT, "12,5\r", 0, 0, 12, RMMI_PARSE_OK, 3},
    {EXT, "12,5\r", 3, 0, 5, RMMI_PARSE_OK, 5},
    {EXT, "12,  5\r", 0, 0, 12, RMMI_PARSE_OK, 5},
    {EXT, "  42\r", 0, 0, 42, RMMI_PARSE_OK, 5},
    {EXT, "42", 0, 0, 42, RMMI_PARSE_OK, 3},
    /* 255 is a value too: only the outcome tells it from an omitted parameter. */
    {EXT, "255\r", 0, 0, 255, RMMI_PARSE_OK, 4},
    {EXT, ",5", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 1},
    {EXT, "\r", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 1},
    {EXT, "", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 1},
    {EXT, "5", 2, 0, 255, RMMI_PARSE_NOT_FOUND, 3}, /* already past the terminator */
    {EXT, "1a,5", 0, 0, 255, RMMI_PARSE_ERROR, 1},
    {EXT, "4 2\r", 0, 0, 255, RMMI_PARSE_ERROR, 1},
    {EXT, "42 ,1\r", 0, 0, 255, RMMI_PARSE_ERROR, 2},
    {EXT, "\t4\r", 0, 0, 255, RMMI_PARSE_ERROR, 0},
    /* A list ending in a separator. */
    {EXT, "7,  \r", 0, 0, 255, RMMI_PARSE_ERROR, 4},
    {EXT, "7,\r", 0, 0, 255, RMMI_PARSE_ERROR, 2},
    {PLAIN, "7,  \r", 0, 0, 7, kUnset, 2},
    {PLAIN, "1a,5", 0, 0, 255, kUnset, 1},
    {PLAIN, ",5", 0, 0, 255, kUnset, 1},
    {PLAIN, "7x", 1, 0, 255, kUnset, 1},
    /* Without a range the value wraps modulo 2^32. */
    {EXT, "4294967296\r", 0, 0, 0, RMMI_PARSE_OK, 11},
    {PLAIN, "4294967301", 0, 0, 5, kUnset, 11},
    /* The overflow guard against max. */
    {RANGE, "255\r", 0, 255, 255, RMMI_PARSE_OK, 4},
    {RANGE, "256\r", 0, 255, 255, RMMI_PARSE_ERROR, 2},
    {RANGE, "7\r", 0, 5, 255, RMMI_PARSE_ERROR, 0},
    {RANGE, "007\r", 0, 7, 7, RMMI_PARSE_OK, 4},
    {RANGE, "0\r", 0, 0, 0, RMMI_PARSE_OK, 2},
    {RANGE, "4294967295\r", 0, 4294967295u, 4294967295u, RMMI_PARSE_OK, 11},
    {RANGE, "4294967296\r", 0, 4294967295u, 255, RMMI_PARSE_ERROR, 9},
    {RANGE, "42949672950\r", 0, 4294967295u, 255, RMMI_PARSE_ERROR, 10},
    {RANGE, "3,\r", 0, 9, 255, RMMI_PARSE_ERROR, 2},
    {RANGE_NO_CAUSE, ",1", 0, 9, 255, kUnset, 1},
    {RANGE_NO_CAUSE, "x", 0, 9, 255, kUnset, 0},
    {RANGE_NO_CAUSE, "10", 0, 9, 255, kUnset, 1},
    {RANGE_NO_CAUSE, "9,1", 0, 9, 9, kUnset, 2},
    /* The sign, and the signed wrap. */
    {SIGNED, "-12\r", 0, 0, static_cast<kal_uint32>(-12), RMMI_PARSE_OK, 4},
    {SIGNED, " -3,4", 0, 0, static_cast<kal_uint32>(-3), RMMI_PARSE_OK, 4},
    {SIGNED, "-,\r", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 2},
    {SIGNED, "-", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 2},
    {SIGNED, "- 1\r", 0, 0, 255, RMMI_PARSE_ERROR, 1},
    {SIGNED, "--1\r", 0, 0, 255, RMMI_PARSE_ERROR, 1},
    {SIGNED, "4294967295\r", 0, 0, static_cast<kal_uint32>(-1), RMMI_PARSE_OK, 11},
    {SIGNED, "2147483648\r", 0, 0, 0x80000000u, RMMI_PARSE_OK, 11},
    {SIGNED, "7,\r", 0, 0, 7, RMMI_PARSE_OK, 2},
    {SIGNED, "", 0, 0, 255, RMMI_PARSE_NOT_FOUND, 1},
};

TEST(IntegerValidators, ValueOutcomeAndCursorFollowEachMembersRules) {
    for (const int_case &c : kIntCases) {
        SCOPED_TRACE(testing::Message()
                     << "member " << c.which << " text \"" << c.text << "\" from " << c.start);
        cursor_fixture f(c.text, c.start);
        kal_uint8 cause = kUnset;
        EXPECT_EQ(run(c, &f.cursor, &cause), c.value);
        EXPECT_EQ(cause, c.cause);
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

TEST(IntegerValidators, ParameterListIsReadToItsEnd) {
    cursor_fixture f("1, 22 ,\r");
    kal_uint8 cause = kUnset;
    EXPECT_EQ(rmmi_int_validator_ext(&cause, &f.cursor, kComma, kCr), 1u);
    EXPECT_EQ(cause, RMMI_PARSE_OK);
    /* The blank after 22 is inside the parameter: a malformed second parameter. */
    EXPECT_EQ(rmmi_int_validator_ext(&cause, &f.cursor, kComma, kCr), 255u);
    EXPECT_EQ(cause, RMMI_PARSE_ERROR);
    EXPECT_EQ(f.cursor.index, 5);

    cursor_fixture g("3,,4\r");
    EXPECT_EQ(rmmi_int_validator_ext(&cause, &g.cursor, kComma, kCr), 3u);
    EXPECT_EQ(rmmi_int_validator_ext(&cause, &g.cursor, kComma, kCr), 255u);
    EXPECT_EQ(cause, RMMI_PARSE_NOT_FOUND);
    EXPECT_EQ(rmmi_int_validator_ext(&cause, &g.cursor, kComma, kCr), 4u);
    EXPECT_EQ(cause, RMMI_PARSE_OK);
    EXPECT_EQ(rmmi_int_validator_ext(&cause, &g.cursor, kComma, kCr), 255u);
    EXPECT_EQ(cause, RMMI_PARSE_NOT_FOUND);
}

TEST(IntegerValidators, CursorStopsAtLastPositionOfAnOverlongText) {
    cursor_fixture f(std::string(70000, '1'));
    kal_uint8 cause = kUnset;
    rmmi_int_validator_ext(&cause, &f.cursor, kComma, kCr);
    EXPECT_EQ(cause, RMMI_PARSE_OK);
    EXPECT_EQ(f.cursor.index, 0xFFFF);
    EXPECT_EQ(rmmi_int_validator_ext(&cause, &f.cursor, kComma, kCr), 255u);
    EXPECT_EQ(cause, RMMI_PARSE_NOT_FOUND);
    EXPECT_EQ(f.cursor.index, 0xFFFF);
}

struct extract_case {
    const char *text;
    kal_uint32 max;
    bool with_delimiter2;
    kal_uint32 value;
    rmmi_validator_cause_enum result;
    kal_uint16 index;
};

const extract_case kExtractCases[] = {
    {"1", 1, false, 1, RMMI_PARSE_OK, 1},
    {"2", 1, false, 0, RMMI_PARSE_ERROR, 0},
    {"a", 1, false, 0, RMMI_PARSE_NOT_FOUND, 0},
    {" 5", 9, false, 0, RMMI_PARSE_NOT_FOUND, 0}, /* no blanks before the first digit */
    {"1 0", 10, false, 10, RMMI_PARSE_OK, 3},
    {"12", 11, false, 1, RMMI_PARSE_ERROR, 1},
    {"65535", 65535, false, 65535, RMMI_PARSE_OK, 5},
    {"65536", 100000, false, 0, RMMI_PARSE_OK, 5}, /* the value is 16 bits wide */
    {"70001", 100000, false, 4465, RMMI_PARSE_OK, 5},
    {"1 \r", 1, true, 1, RMMI_PARSE_OK, 2},
    {"1x", 1, true, 1, RMMI_PARSE_ERROR, 1},
    {"\r", 1, true, 0, RMMI_PARSE_NOT_FOUND, 0},
    {"x\r", 1, true, 0, RMMI_PARSE_ERROR, 0},
    {"2\r", 1, true, 0, RMMI_PARSE_ERROR, 0},
    {"", 1, true, 0, RMMI_PARSE_ERROR, 0},
};

TEST(ExtractNumber, ValueOutcomeAndCursor) {
    for (const extract_case &c : kExtractCases) {
        SCOPED_TRACE(testing::Message() << "text \"" << c.text << "\" max " << c.max);
        cursor_fixture f(c.text);
        rmmi_validator_cause_enum result = RMMI_PARSE_TEXT_TOO_LONG;
        testing::internal::CaptureStdout();
        const kal_uint32 value = c.with_delimiter2
                                     ? rmmi_extract_number_ext(&f.cursor, &result, c.max, kCr)
                                     : rmmi_extract_number(&f.cursor, &result, c.max);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(value, c.value);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

TEST(ExtractNumber, PrintsTextAndEachDigitWhateverTheLevel) {
    kal_init(0);
    cursor_fixture f("x47", 1);
    testing::internal::CaptureStdout();
    rmmi_extract_number(&f.cursor, nullptr, 4);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "source_string_ptr->string_ptr=[x47],source_string_ptr->index=[1]\r\n"
              "get char is number \r\n"
              "max=[4], digit=[4] \r\n"
              "get char is number \r\n"
              "max=[4], digit=[7] \r\n");
    EXPECT_EQ(f.cursor.index, 2);
}

TEST(ExtractNumber, ExtWithoutResultStillMovesCursor) {
    cursor_fixture f("3  x");
    testing::internal::CaptureStdout();
    EXPECT_EQ(rmmi_extract_number_ext(&f.cursor, nullptr, 9, kCr), 3);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(f.cursor.index, 3);
}

struct dial_case {
    const char *text;
    kal_uint8 delimiter;
    kal_uint8 max_length;
    kal_bool ok;
    const char *copied; /* null: the output must be left as it was */
    kal_uint16 index;
};

const dial_case kDialCases[] = {
    {"+49 T89;", ',', 8, KAL_TRUE, "+4989", 7},
    {"+49 T89;", ',', 4, KAL_TRUE, "+49", 3},
    {"*#pPiIgG0,", ',', 20, KAL_TRUE, "*#pPiIgG0", 9},
    {"1,2!t;", ';', 20, KAL_TRUE, "12", 5}, /* ',' is dropped unless it is the delimiter */
    {",5;", ',', 8, KAL_TRUE, "", 0},
    {";", ',', 8, KAL_TRUE, "", 0},
    {"12;", ',', 1, KAL_TRUE, "", 0},
    {"12;", ',', 0, KAL_TRUE, nullptr, 0},
    {"123", ',', 8, KAL_FALSE, nullptr, 3}, /* the end of the text is illegal */
    {"12a;", ',', 8, KAL_FALSE, nullptr, 2},
    {"123", 0, 8, KAL_TRUE, "123", 3},
};

TEST(ExtractNumberString, CopiesDialDigitsUpToDelimiterOrLength) {
    for (const dial_case &c : kDialCases) {
        SCOPED_TRACE(testing::Message()
                     << "text \"" << c.text << "\" max_length " << static_cast<int>(c.max_length));
        cursor_fixture f(c.text);
        std::vector<kal_uint8> out(c.max_length + 1, 0xAA);
        EXPECT_EQ(extract_number_string(&f.cursor, c.delimiter, out.data(), c.max_length), c.ok);
        if (c.copied != nullptr) {
            EXPECT_STREQ(reinterpret_cast<const char *>(out.data()), c.copied);
        } else if (c.max_length == 0) {
            EXPECT_EQ(out[0], 0xAA);
        }
        EXPECT_EQ(out[c.max_length], 0xAA);
        EXPECT_EQ(f.cursor.index, c.index);
    }
}

TEST(SkipLeadingChars, StepsOverDialModifiersAndBlanksOnly) {
    cursor_fixture f("Tt@!Pp 5T");
    rmmi_skip_leading_chars(&f.cursor);
    EXPECT_EQ(f.cursor.index, 7);
    cursor_fixture g("tp");
    rmmi_skip_leading_chars(&g.cursor);
    EXPECT_EQ(g.cursor.index, 2);
}

TEST(IsNumberString, DigitsOnlyWhateverTheLength) {
    const auto check = [](const std::string &s) {
        return rmmi_is_number_string(reinterpret_cast<const kal_uint8 *>(s.c_str()));
    };
    EXPECT_EQ(check(""), KAL_TRUE);
    EXPECT_EQ(check("0123456789"), KAL_TRUE);
    EXPECT_EQ(check("12a"), KAL_FALSE);
    EXPECT_EQ(check(std::string(300, '7')), KAL_TRUE);
    EXPECT_EQ(check(std::string(300, '7') + "x"), KAL_FALSE);
}

TEST(IntegerValidators, NullCursorStopsTheProcess) {
    kal_uint8 cause = 0;
    EXPECT_DEATH(rmmi_int_validator(nullptr, kComma, kCr),
                 "source_string_ptr != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(rmmi_int_validator_ext(nullptr, nullptr, kComma, kCr), "error_cause != ");
    EXPECT_DEATH(rmmi_signed_int_validator(&cause, nullptr, kComma, kCr), "source_string_ptr");
}

} // namespace
