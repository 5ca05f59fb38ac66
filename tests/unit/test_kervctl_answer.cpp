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

TEST(KervctlAnswer, CommandCountFollowsSeparatorsOutsideQuotes) {
    const struct {
        const char *line;
        int count;
    } cases[] = {
        {"AT+CSQ", 1}, {"ATE0;V1;+CSQ", 3}, {"AT+CMGS=\"a;b\";+CSQ", 2}, {"AT+X=\"open;", 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(kervctl_line_command_count(c.line), c.count) << c.line;
}

} // namespace
