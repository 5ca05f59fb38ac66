/*
 * Splitting, classification and mode detection on the engine's cursors, and the
 * generation hash that local applications ask for.
 */
#include "command_analyzer.h"
#include "internal_commands.h"

#include "engine_support.h"

namespace {

using rmmi_test::EngineTest;

class Analyzer : public EngineTest {
  protected:
    /* Classifies the command at the start of text, after commands_before others. */
    rmmi_string_struct classify(const std::string &text, kal_uint32 commands_before = 0) {
        line_ = text;
        rmmi_string_struct cursor = {};
        cursor.string_ptr = reinterpret_cast<kal_uint8 *>(line_.data());
        context()->cmd_number = commands_before;
        rmmi_validator_t validator = {};
        cursor.cmd_class = rmmi_find_cmd_class(&cursor, &validator);
        rmmi_release_validator_copies(&validator);
        return cursor;
    }
    /* Takes the first command of text into the command buffer and finds its mode. */
    rmmi_string_struct take_first(const std::string &text, rmmi_string_struct *line_cursor) {
        line_ = text;
        *line_cursor = {};
        line_cursor->string_ptr = reinterpret_cast<kal_uint8 *>(line_.data());
        context()->cmd_number = 0;
        rmmi_string_struct cmd = {};
        cmd.string_ptr = command_;
        rmmi_validator_t validator = {};
        EXPECT_EQ(rmmi_get_next_cmd(line_cursor, &cmd, &validator), KAL_TRUE);
        rmmi_release_validator_copies(&validator);
        return cmd;
    }
    std::string command_text() { return reinterpret_cast<const char *>(command_); }

    std::string line_;
    kal_uint8 command_[RMMI_CMD_BUFFER_SIZE] = {};
};

TEST_F(Analyzer, SeparatorStopsAtSemicolonsOutsideQuotesAndAtLineEnds) {
    struct {
        const char *text;
        kal_uint16 limit;
        kal_uint16 first;
    } cases[] = {
        {"ATE0;V1", 7, 4},
        {"AT+CMGS=\"a;b\";+CSQ", 18, 13},
        {"AT+X=\"1;2\"", 10, 10},
        {"AT\"\";X", 6, 4},
        {"AT\"a\"b\";c", 9, 9},
        {"AT\rX", 4, 2},
        {"AT\nX", 4, 2},
        {"ATE0;V1", 3, 3},
        {"", 5, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(
            rmmi_find_multicmd_seperator(reinterpret_cast<const kal_uint8 *>(c.text), c.limit),
            c.first)
            << c.text;
}

TEST_F(Analyzer, InternalRowsMatchByHashWhateverTheDigitOrCase) {
    struct {
        const char *text;
        kal_uint8 cmd_class;
        kal_uint16 row;
    } cases[] = {
        {"ATE0", RMMI_INTERNAL_CMD, RMMI_ATE},
        {"ate9", RMMI_INTERNAL_CMD, RMMI_ATE},
        {"ATEA", RMMI_INTERNAL_CMD, RMMI_ATE},
        {"ATV0", RMMI_INTERNAL_CMD, RMMI_ATV},
        {"ATV1", RMMI_INTERNAL_CMD, RMMI_ATV},
        {"AT+RELAY=1", RMMI_INTERNAL_CMD, RMMI_AT_RELAY},
        {"AT RELAY", RMMI_INTERNAL_CMD, RMMI_AT_RELAY},
        {"AT+rElAy?", RMMI_INTERNAL_CMD, RMMI_AT_RELAY},
        {"ATE", RMMI_BASIC_CMD, 0},
        {"ATE01", RMMI_BASIC_CMD, 0},
        {"AT^RELAY", RMMI_BASIC_CMD, 0},
        {"ATS0=1", RMMI_BASIC_CMD, 0},
        {"AT", RMMI_BASIC_CMD, 0},
        {"AT+CSQ", RMMI_BASIC_CMD, 0},
        {"AB", RMMI_INVALID_CMD_TYPE, 0},
        {"+CSQ", RMMI_INVALID_CMD_TYPE, 0},
        {"A/\r", RMMI_PREV_CMD, 0},
        {"A / \r", RMMI_PREV_CMD, 0},
        {"A/", RMMI_INVALID_CMD_TYPE, 0},
    };
    for (const auto &c : cases) {
        const rmmi_string_struct cursor = classify(c.text);
        EXPECT_EQ(cursor.cmd_class, c.cmd_class) << c.text;
        EXPECT_EQ(cursor.cmd_index, c.row) << c.text;
    }
    kal_uint16 row = 99, row_index = 99;
    EXPECT_EQ(rmmi_internal_command_analyzer(0, 0, &row, &row_index), KAL_FALSE)
        << "the marker row never matches";
    EXPECT_EQ(row, 99);
}

TEST_F(Analyzer, PrefixSymbolCountsOnlyUpToPosition40) {
    EXPECT_EQ(classify("AT^SYSINFO").symbol_hash, RMMI_EXTEND_HASH_HAT);
    EXPECT_EQ(classify("AT%X=1").symbol_hash, RMMI_EXTEND_HASH_PERCENT);
    EXPECT_EQ(classify("AT$Q").symbol_hash, RMMI_EXTEND_HASH_MONEY);
    const rmmi_string_struct late = classify(std::string(41, ' ') + "^SYSINFO", 1);
    EXPECT_EQ(late.cmd_class, RMMI_BASIC_CMD) << "a later command with an empty name";
    EXPECT_EQ(late.symbol_hash, RMMI_EXTEND_HASH_PLUS);
    EXPECT_EQ(late.index, 41);
}

TEST_F(Analyzer, CommandTakesItsTerminatorAndModeFromTheCharactersAfterTheName) {
    struct {
        const char *line;
        const char *command;
        kal_uint8 mode;
        kal_uint16 index;
        kal_uint16 next;
    } cases[] = {
        {"AT+CGDCONT=1,\"IP\"", "AT+CGDCONT=1,\"IP\"\r", RMMI_SET_OR_EXECUTE_MODE, 11, 17},
        {"AT+CGDCONT?", "AT+CGDCONT?\r", RMMI_READ_MODE, 11, 11},
        {"AT+CGDCONT=?;E0", "AT+CGDCONT=?\r", RMMI_TEST_MODE, 12, 13},
        {"AT+X = ? ", "AT+X = ? \r", RMMI_TEST_MODE, 9, 9},
        {"AT+X= 5", "AT+X= 5\r", RMMI_SET_OR_EXECUTE_MODE, 6, 7},
        {"AT+X?1", "AT+X?1\r", RMMI_WRONG_MODE, 5, 6},
        {"AT+X=?1", "AT+X=?1\r", RMMI_WRONG_MODE, 6, 7},
        {"AT+X!", "AT+X!\r", RMMI_WRONG_MODE, 4, 5},
        {"ATE0 ; V1", "ATE0 \r", RMMI_ACTIVE_MODE, 5, 7},
        {"AT", "AT\r", RMMI_ACTIVE_MODE, 2, 2},
        {"AT+ABCDEFGHIJKLMNOPQRST", "AT+ABCDEFGHIJKLMNOPQRST\r", RMMI_WRONG_MODE, 20, 23},
    };
    for (const auto &c : cases) {
        rmmi_string_struct line_cursor;
        const rmmi_string_struct cmd = take_first(c.line, &line_cursor);
        EXPECT_EQ(command_text(), c.command) << c.line;
        EXPECT_EQ(cmd.cmd_mode, c.mode) << c.line;
        EXPECT_EQ(cmd.index, c.index) << c.line;
        EXPECT_EQ(line_cursor.index, c.next) << c.line;
    }
}

TEST(GenerationHash, WorkedExamplesAndTheFormsAuthorsType) {
    struct {
        const char *name;
        kal_uint32 hash1;
        kal_uint32 hash2;
    } cases[] = {
        {"+CSQ", 5071, 0},
        {"+CGDCONT", 6645417, 552},
        {"AT+cgdcont=1", 6645417, 552},
        {"  at+CgDcOnT?", 6645417, 552},
        {"+RELAY", 37824199, 0},
        {"ATE0", 217, 0},
        {"ATE9", 226, 0},
        {"V1", 864, 0},
        {"E", 5, 0},
        {"^SYSINFO", 120252344, 243},
        {"%X", 158470360, 0},
        {"$X", 237705528, 0},
        {"+^X", 79235192, 0},
        {"ABCDE999999", 2199369, 2929559724u},
        {"ABCDEFGHIJKLMNOP", 2199369, 490459323}, /* 11 characters count */
        {"+C#Q", 3 * 1444 + 3 * 38 + 17, 0},      /* '#' repeats the value of 'C' */
        {"+CSQ\r", 5071 * 38 + 17, 0},            /* CR is not an end here */
        {"AT=1", 0, 0},
    };
    for (const auto &c : cases) {
        kal_uint32 h1 = 1, h2 = 1;
        ASSERT_EQ(rmmi_custom_compute_at_cmd(c.name, &h1, &h2), KAL_TRUE) << c.name;
        EXPECT_EQ(h1, c.hash1) << c.name;
        EXPECT_EQ(h2, c.hash2) << c.name;
    }
}

TEST(GenerationHash, NamesWithoutAHashAreRefused) {
    kal_uint32 h1 = 0, h2 = 0;
    for (const char *name : {"", "AT", "  AT", "AT+", "at^", "AT#X", "+ CSQ"})
        EXPECT_EQ(rmmi_custom_compute_at_cmd(name, &h1, &h2), KAL_FALSE) << name;
    EXPECT_EQ(rmmi_custom_compute_at_cmd(nullptr, &h1, &h2), KAL_FALSE);
}

TEST(GenerationHash, AnswerPrintsBothValuesSignedAndWithinItsRoom) {
    char res[64];
    ASSERT_EQ(rmmi_process_calcuate_cmd(-1, "AT+CGDCONT", res, 63), KAL_TRUE);
    EXPECT_STREQ(res, "hash_value1=[6645417], hash_value2=[552]");
    ASSERT_EQ(rmmi_process_calcuate_cmd(-1, "ABCDE999999", res, 63), KAL_TRUE);
    EXPECT_STREQ(res, "hash_value1=[2199369], hash_value2=[-1365407572]");
    memset(res, 'z', sizeof(res));
    ASSERT_EQ(rmmi_process_calcuate_cmd(-1, "+CSQ", res, 10), KAL_TRUE);
    EXPECT_STREQ(res, "hash_value");
    EXPECT_EQ(res[11], 'z');
    EXPECT_EQ(rmmi_process_calcuate_cmd(-1, "AT", res, 63), KAL_FALSE);
}

} // namespace
