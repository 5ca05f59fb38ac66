/* The load client counts answers in whatever pieces the daemon's bytes arrive. */
#include "answer_count.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(AnswerCount, CountsFinalResultCodesHoweverTheStreamIsCut) {
    const struct {
        const char *stream;
        int answers;
        int errors;
    } cases[] = {
        {"AT+CSQ\r\r\n+CSQ: 23,99\r\n\r\nOK\r\n", 1, 0},
        {"\r\nOK\r\n\r\nOK\r\n\r\nERROR\r\n", 3, 1},
        {"AT+X\r\r\n+CME ERROR: 10\r\n", 1, 1},
        {"\r\n+CMS ERROR: 500\r\n\r\nNO CARRIER\r\n", 2, 2},
        {"\r\nOKAY\r\n\r\n+CSQ: OK\r\n\r\nERRORS\r\n", 0, 0},
        {"\r\nOK", 0, 0},
    };
    for (const auto &c : cases) {
        const size_t len = strlen(c.stream);
        for (size_t cut = 0; cut <= len; cut++) {
            kervctl_answer_scan_t scan;
            kervctl_answer_reset(&scan);
            const answer_count_t first = answer_count_feed(&scan, c.stream, cut);
            const answer_count_t second = answer_count_feed(&scan, c.stream + cut, len - cut);
            EXPECT_EQ(first.answers + second.answers, c.answers) << c.stream << " cut " << cut;
            EXPECT_EQ(first.errors + second.errors, c.errors) << c.stream << " cut " << cut;
        }
    }
}

} // namespace
