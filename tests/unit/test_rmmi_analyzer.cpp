/*
 * Splitting, classification and mode detection on the engine's cursors, and the
 * generation hash that local applications ask for.
 */
#include "rmmi_analyzer.h"
#include "rmmi_basic_val.h"

#include "rmmi_test_support.h"

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
        {"ATE1", RMMI_INTERNAL_CMD, RMMI_ATE},
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
        EXPECT_EQ(cursor.cmd_row_index, c.row) << c.text;
    }
    EXPECT_EQ(rmmi_internal_cmd_table[RMMI_AT_NEED_RELAY_TO_MD][0], 0u);
    kal_uint16 row = 99, row_index = 99;
    EXPECT_EQ(rmmi_internal_command_analyzer(0, 0, &row, &row_index), KAL_FALSE)
        << "the marker row never matches";
    EXPECT_EQ(row, 99);
}

TEST_F(Analyzer, PrefixSymbolsSetTheSymbolHashOnlyUpToPosition40) {
    struct {
        std::string text;
        rmmi_extend_symbol_hash_enum symbol_hash;
        kal_uint16 index_after_name;
    } cases[] = {
        {"AT^SYSINFO", RMMI_EXTEND_HASH_HAT, 10},
        {"AT%X=1", RMMI_EXTEND_HASH_PERCENT, 4},
        {"AT$Q", RMMI_EXTEND_HASH_MONEY, 4},
        {"AT+CSQ", RMMI_EXTEND_HASH_PLUS, 6},
        {"AT  +CSQ ?", RMMI_EXTEND_HASH_PLUS, 8},
        {"AT+ABCDEFGHIJKLMNOPQRST", RMMI_EXTEND_HASH_PLUS, 20}, /* 17 name characters */
    };
    for (const auto &c : cases) {
        const rmmi_string_struct cursor = classify(c.text);
        EXPECT_EQ(cursor.symbol_hash, c.symbol_hash) << c.text;
        EXPECT_EQ(cursor.index, c.index_after_name) << c.text;
    }
    /* A later command whose symbol stands beyond position 40 has an empty name. */
    const rmmi_string_struct late = classify(std::string(41, ' ') + "^SYSINFO", 1);
    EXPECT_EQ(late.cmd_class, RMMI_BASIC_CMD);
    EXPECT_EQ(late.symbol_hash, RMMI_EXTEND_HASH_PLUS);
    EXPECT_EQ(late.index, 41);
    EXPECT_EQ(context()->cmd_number, 2u);
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

TEST_F(Analyzer, HandlersWithoutACommandAnswerErrorAndTheMarkerRowIsHarmless) {
    for (RMMI_BASIC_CMD_FUNCTION handler :
         {rmmi_atrelay_hdlr, rmmi_ate_hdlr, rmmi_atv_hdlr, rmmi_empty_hdlr}) {
        char out[RMMI_RSP_BUFFER_SIZE] = {};
        kal_uint32 length = RMMI_RSP_BUFFER_ROOM;
        EXPECT_EQ(handler(nullptr, out, &length), KAL_FALSE);
        EXPECT_STREQ(out, "\r\nERROR\r\n");
    }
    rmmi_string_struct cmd = {};
    kal_uint32 length = RMMI_RSP_BUFFER_ROOM;
    char out[RMMI_RSP_BUFFER_SIZE] = {};
    EXPECT_EQ(rmmi_internal_validator_ft[RMMI_AT_NEED_RELAY_TO_MD](&cmd, out, &length), KAL_TRUE);
    EXPECT_EQ(length, 0u);
}

TEST_F(Analyzer, RelayHandlerReportsTheModemInForce) {
    struct {
        const char *line;
        kal_uint32 chip_type;
        const char *report;
        kal_bool result;
    } cases[] = {
        {"AT+RELAY?", 0, "\r\nLTE\r\n", KAL_TRUE},
        {"AT+RELAY=?", 16, "\r\n23G\r\n", KAL_TRUE},
        {"AT+RELAY?", 1, "\r\nLTE\r\n", KAL_TRUE},
        {"AT+RELAY", 1, "\r\nACTIVE MODE\r\n", KAL_TRUE},
        {"AT+RELAY=+lte", 16, "\r\nOK\r\n", KAL_TRUE},
        {"AT+RELAY=LT", 16, "\r\nERROR\r\n", KAL_FALSE},
        {"AT+RELAY?x", 16, "", KAL_FALSE},
    };
    for (const auto &c : cases) {
        rmmi_string_struct line_cursor;
        rmmi_string_struct cmd = take_first(c.line, &line_cursor);
        context()->chip_type = c.chip_type;
        char out[RMMI_RSP_BUFFER_SIZE] = {};
        kal_uint32 length = RMMI_RSP_BUFFER_ROOM;
        EXPECT_EQ(rmmi_atrelay_hdlr(&cmd, out, &length), c.result) << c.line;
        EXPECT_STREQ(out, c.report) << c.line;
        if (c.result == KAL_TRUE) {
            EXPECT_EQ(length, strlen(c.report)) << c.line;
        }
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
        {"ATE1", 218, 0},
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
