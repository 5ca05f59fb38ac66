#include "kervctl_answer.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KervctlAnswer, FinalResultCodeLineEndsTheAnswer) {
    const struct {
        const char *name;
        std::string bytes;
        kervctl_answer_e result;
        size_t used; /* bytes that belong to the answer */
    } cases[] = {
        {"echo, response, OK", "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n", KERVCTL_ANSWER_OK, 28},
        {"error", "\r\nERROR\r\n", KERVCTL_ANSWER_FAILED, 9},
        {"cme error with cause", "\r\n+CME ERROR: 603\r\n", KERVCTL_ANSWER_FAILED, 19},
        {"cms error with cause", "\r\n+CMS ERROR: 500\r\n", KERVCTL_ANSWER_FAILED, 19},
        {"numeric OK", "\r\n0\r\n", KERVCTL_ANSWER_OK, 5},
        {"numeric ERROR of the daemon", "\r\n3\r\n", KERVCTL_ANSWER_FAILED, 5},
        {"numeric ERROR of a modem", "4\r", KERVCTL_ANSWER_FAILED, 2},
        {"call ended", "\r\nNO CARRIER\r\n", KERVCTL_ANSWER_FAILED, 14},
        {"bytes after the final code stay", "\r\nOK\r\n\r\n+CREG: 1\r\n", KERVCTL_ANSWER_OK, 6},
        {"final code without its line end yet", "\r\nOK", KERVCTL_ANSWER_PENDING, 4},
        {"OK inside a line", "\r\n+COPS: 0,0,\"OK\"\r\n", KERVCTL_ANSWER_PENDING, 19},
        {"text starting like a final code", "\r\nOKAY\r\nERRORS\r\n40\r\n", KERVCTL_ANSWER_PENDING,
         20},
        {"cme error without a cause", "\r\n+CME ERROR:\r\n", KERVCTL_ANSWER_PENDING, 15},
        {"lower case", "\r\nok\r\n", KERVCTL_ANSWER_PENDING, 6},
        {"an overlong line ending in OK", "\r\n" + std::string(40, 'x') + "OK\r\n",
         KERVCTL_ANSWER_PENDING, 46},
    };
    for (const auto &c : cases) {
        kervctl_answer_scan_t scan;
        kervctl_answer_reset(&scan);
        size_t used = 12345;
        EXPECT_EQ(kervctl_answer_feed(&scan, c.bytes.data(), c.bytes.size(), &used), c.result)
            << c.name;
        EXPECT_EQ(used, c.used) << c.name;
    }
}

TEST(KervctlAnswer, AnswerSplitAcrossReadsIsRecognisedAtEveryCut) {
    const std::string answer = "ATI\r\r\nModel 7\r\n\r\n+CME ERROR: 10\r\n";
    for (size_t cut = 0; cut <= answer.size(); cut++) {
        kervctl_answer_scan_t scan;
        kervctl_answer_reset(&scan);
        size_t used = 0;
        kervctl_answer_e result = kervctl_answer_feed(&scan, answer.data(), cut, &used);
        size_t total = used;
        if (result == KERVCTL_ANSWER_PENDING) {
            ASSERT_EQ(used, cut);
            result = kervctl_answer_feed(&scan, answer.data() + cut, answer.size() - cut, &used);
            total += used;
        }
        EXPECT_EQ(result, KERVCTL_ANSWER_FAILED) << cut;
        /* A cut between "\r" and "\n" leaves the line feed for what follows. */
        EXPECT_EQ(total, cut == answer.size() - 1 ? answer.size() - 1 : answer.size()) << cut;
    }
}

/* How many final codes a line's answer holds, as the daemon takes the line apart. */
TEST(KervctlAnswer, LinePlanFollowsTheDaemonsSplitting) {
    const std::string long_apn = "AT+CGDCONT=1,\"IP\",\"internet.example.long\"";
    const struct {
        std::string line;
        int answered;
        int finals;
        kervctl_line_result_e line_result;
    } cases[] = {
        {"AT+CSQ", 1, 1, KERVCTL_LINE_RESULT_NONE},
        {"xyzAT+CSQ", 1, 1, KERVCTL_LINE_RESULT_NONE},
        {"AT+CSQ;+CREG?", 1, 2, KERVCTL_LINE_RESULT_FOLLOWS},
        {"ATE0 ; V1;+CSQ", 1, 3, KERVCTL_LINE_RESULT_FOLLOWS},
        {"AT+CMGS=\"a;b\";+CSQ", 1, 2, KERVCTL_LINE_RESULT_FOLLOWS},
        {"AT+X=\"open;", 1, 1, KERVCTL_LINE_RESULT_NONE},
        {"ATE0;", 1, 1, KERVCTL_LINE_RESULT_NONE},
        /* Nothing is written for a line without "A" followed by "T". */
        {"hello", 0, 0, KERVCTL_LINE_RESULT_NONE},
        {"AAT", 0, 0, KERVCTL_LINE_RESULT_NONE},
        {"xA", 0, 0, KERVCTL_LINE_RESULT_NONE},
        /* A later command that is not a command stops the line with an error. */
        {"ATE1;AB", 1, 2, KERVCTL_LINE_RESULT_MAYBE},
        {"ATE1;A/;+CSQ", 1, 2, KERVCTL_LINE_RESULT_MAYBE},
        {long_apn + ";ATE1", 1, 2, KERVCTL_LINE_RESULT_MAYBE},
        {long_apn + ";E1", 1, 2, KERVCTL_LINE_RESULT_FOLLOWS},
        /* More than 38 characters after the first command: one error, nothing runs. */
        {"AT+CSQ;" + long_apn, 1, 1, KERVCTL_LINE_RESULT_NONE},
        {"AT+CSQ;" + std::string(38, 'x'), 1, 2, KERVCTL_LINE_RESULT_FOLLOWS},
        {"AT+CSQ;" + std::string(39, 'x'), 1, 1, KERVCTL_LINE_RESULT_NONE},
        /* A line the channel cannot hold is refused with one error. */
        {"AT" + std::string(KERVCTL_LINE_REFUSED_LEN - 2, ';'), 1, 1, KERVCTL_LINE_RESULT_NONE},
        {"AT+CSQ;" + std::string(KERVCTL_LINE_REFUSED_LEN - 8, ' '), 1, 1,
         KERVCTL_LINE_RESULT_NONE},
    };
    for (const auto &c : cases) {
        kervctl_line_plan_t plan;
        kervctl_plan_line(c.line.c_str(), &plan);
        EXPECT_EQ(plan.answered, c.answered) << c.line;
        EXPECT_EQ(plan.finals, c.finals) << c.line;
        EXPECT_EQ(plan.line_result, c.line_result) << c.line;
    }
}

} // namespace
