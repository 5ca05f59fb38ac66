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

} // namespace
