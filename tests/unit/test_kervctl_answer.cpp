#include "kervctl_answer.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr kervctl_answer_e OK = KERVCTL_ANSWER_OK, FAILED = KERVCTL_ANSWER_FAILED,
                           PENDING = KERVCTL_ANSWER_PENDING;

TEST(KervctlAnswer, FinalResultCodeLineEndsTheAnswer) {
    const struct {
        std::string bytes;
        kervctl_answer_e result;
        size_t used; /* bytes that belong to the answer */
    } cases[] = {
        {"AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n", OK, 28},
        {"\r\nERROR\r\n", FAILED, 9},
        {"\r\n+CME ERROR: 603\r\n", FAILED, 19},
        {"\r\n0\r\n", OK, 5},
        {"\r\n3\r\n", FAILED, 5},
        {"4\r", FAILED, 2}, /* a modem's numeric ERROR */
        {"\r\nNO CARRIER\r\n", FAILED, 14},
        {"\r\nOK\r\n\r\n+CREG: 1\r\n", OK, 6}, /* what follows is not the answer's */
        {"\r\nOK", PENDING, 4},
        {"\r\n+COPS: 0,0,\"OK\"\r\n", PENDING, 19},
        {"\r\nOKAY\r\nERRORS\r\n40\r\n", PENDING, 20},
        {"\r\n+CME ERROR:\r\n", PENDING, 15},
        {"\r\n" + std::string(40, 'x') + "OK\r\n", PENDING, 46},
    };
    for (const auto &c : cases) {
        kervctl_answer_scan_t scan;
        kervctl_answer_reset(&scan);
        size_t used = 12345;
        EXPECT_EQ(kervctl_answer_feed(&scan, c.bytes.data(), c.bytes.size(), &used), c.result)
            << c.bytes;
        EXPECT_EQ(used, c.used) << c.bytes;
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
