/*
 * The AT engine end to end in one process: lines in through rmmi_process_multi_cmd, the
 * exact bytes out on a host connection, and the datagrams a stand-in modem daemon receives.
 */
#include "engine_support.h"

#include <algorithm>
#include <random>

namespace {

using rmmi_test::EngineTest;
using rmmi_test::FakeModemd;
using rmmi_test::ModemReply;
using rmmi_test::ModemRequest;

const std::string kOk = "\r\nOK\r\n";
const std::string kError = "\r\nERROR\r\n";
const std::string kCsqAnswer = "\r\n+CSQ: 20,99\r\n\r\nOK\r\n";

class Engine : public EngineTest {
  protected:
    std::vector<std::string> modem_texts() { return modemd.take_texts(); }
    void echo_off() {
        ASSERT_EQ(run("ATE0"), kOk);
        modemd.take_requests();
    }

    FakeModemd modemd;
};

TEST_F(Engine, EchoPrecedesAnswersOnlyWhileOnAndEchoOffAnswerIsAlreadyBare) {
    EXPECT_EQ(run("ATE1"), "ATE1\r" + kOk);
    EXPECT_EQ(run("ATE0"), kOk);
    EXPECT_EQ(context()->rsp_mode.echo_flag, RMMI_ECHO_OFF);
    EXPECT_EQ(run("ATE1"), "ATE1\r" + kOk);
    EXPECT_EQ(run("ATE2"), "ATE2\r" + kError);
    EXPECT_EQ(context()->rsp_mode.echo_flag, RMMI_ECHO_ON);
    EXPECT_EQ(run("ATE0 "), kOk) << "blanks after the digit do not change the digit";
    EXPECT_EQ(run("ATE"), kOk) << "E without a digit is the modem's";
    EXPECT_EQ(modem_texts(), std::vector<std::string>{"ATE\r"});
}

TEST_F(Engine, VerboseSwitchGoesToTheModemFirstAndNumericCodesShowInResultCodes) {
    echo_off();
    EXPECT_EQ(run("ATV0"), kOk);
    EXPECT_EQ(context()->rsp_mode.format, RMMI_NUM_PARTIAL_HEAD_TAIL);
    EXPECT_EQ(modem_texts(), std::vector<std::string>{"ATV0\r"});
    /* Internal answers keep their words; result codes of the line become numbers. */
    EXPECT_EQ(run("ATE0;E0"), kOk + kOk + "\r\n0\r\n");
    EXPECT_EQ(run("ATE0;AB"), kOk + "\r\n3\r\n");

    modemd.answer(ModemReply::short27);
    EXPECT_EQ(run("ATV1"), kError);
    EXPECT_EQ(context()->rsp_mode.format, RMMI_NUM_PARTIAL_HEAD_TAIL) << "modem refused";
    modemd.answer(ModemReply::text);
    EXPECT_EQ(run("ATV7"), kError);
    EXPECT_EQ(run("ATV1"), kOk);
    EXPECT_EQ(context()->rsp_mode.format, RMMI_VERBOSE_FULL_HEAD_TAIL);
    EXPECT_EQ(run("ATE0;AB"), kOk + kError);
    EXPECT_EQ(modem_texts(), (std::vector<std::string>{"ATV1\r", "ATV7\r", "ATV1\r"}));
}

TEST_F(Engine, RelayChoosesTheModemOfLaterCommands) {
    echo_off();
    context()->chip_type = 0;
    modemd.answer(ModemReply::text, kCsqAnswer);
    EXPECT_EQ(run("AT+CSQ"), kCsqAnswer);
    struct {
        const char *line;
        const std::string answer;
        kal_uint32 chip_type;
    } steps[] = {
        {"AT+RELAY?", kOk, 0},
        {"AT+RELAY=LTE", kOk, 1},
        {"AT+RELAY=23g", kOk, 16},
        {"at+relay=lte", kOk, 1},
        {"AT+RELAY=4G", kError, 1},
        {"AT+RELAY= 23G", kOk, 16},
        {"AT+RELAY=L", kError, 16},
        {"AT+RELAY=LtEX", kOk, 1},
        {"AT+RELAY=?", kOk, 1},
        {"AT+RELAY", kOk, 1},
        {"AT+RELAY?x", kError, 1},
        {"ATRELAY=23G", kOk, 16},
        {"AT+RELAY=LTE;+RELAY?", kOk + kOk + kOk, 1},
    };
    for (const auto &step : steps) {
        EXPECT_EQ(run(step.line), step.answer) << step.line;
        EXPECT_EQ(context()->chip_type, step.chip_type) << step.line;
    }
    EXPECT_EQ(run("AT+CSQ;V1"), kCsqAnswer + kOk + kOk);
    const std::vector<ModemRequest> requests = modemd.take_requests();
    ASSERT_EQ(requests.size(), 3u) << "relay commands never reach the modem";
    EXPECT_EQ(requests[0].target, 16u) << "unconfigured target is the 2G/3G modem";
    EXPECT_EQ(requests[1].target, 1u);
    EXPECT_EQ(requests[2].target, 1u);
    EXPECT_EQ(requests[2].data, "V1\r");

    rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_SOCKET_PORT, RMMI_MODEMD_23G,
                                     RMMI_VERBOSE_FULL_HEAD_TAIL);
    EXPECT_EQ(context()->chip_type, 16u) << "a reload restores the configured modem";
}

TEST_F(Engine, LaterCommandsReachTheModemCompleteWithTheirTerminator) {
    echo_off();
    modemd.answer(ModemReply::text, kCsqAnswer);
    EXPECT_EQ(run("ATE0;+CSQ"), kOk + kCsqAnswer + kOk);
    EXPECT_EQ(run("ATE0;+CGDCONT=1,\"IP\",\"internet.example\""), kOk + kCsqAnswer + kOk);
    EXPECT_EQ(run("AT+CMGS=\"a;b\";+CSQ"), kCsqAnswer + kCsqAnswer + kOk);
    EXPECT_EQ(run("ATD12345;"), kCsqAnswer) << "a trailing ';' makes no second command";
    EXPECT_EQ(run("ATE0;\n+CSQ"), kOk + kCsqAnswer + kOk);
    EXPECT_EQ(modem_texts(), (std::vector<std::string>{
                                 "AT+CSQ\r",
                                 "AT+CGDCONT=1,\"IP\",\"internet.example\"\r",
                                 "AT+CMGS=\"a;b\"\r",
                                 "AT+CSQ\r",
                                 "ATD12345\r",
                                 "AT+CSQ\r",
                             }));
}

TEST_F(Engine, MultiCommandLineGivesOneLineResultAndStopsAtAnError) {
    EXPECT_EQ(run("ATE0;E1;E0"), kOk + "E1\r" + kOk + kOk + kOk);
    expect_line_flags_clear();
    EXPECT_EQ(run("ATE0;AB;E1"), kOk + kError) << "stops at the unrecognisable command";
    EXPECT_EQ(context()->rsp_mode.echo_flag, RMMI_ECHO_OFF);
    expect_line_flags_clear();
    EXPECT_EQ(run("ATE1;E2;E0"), "ATE1\r" + kOk + "E2\r" + kError + kOk + kError)
        << "a failed command does not stop the line but fails it";
    expect_line_flags_clear();
    EXPECT_EQ(run("ATE0;A/\r"), kOk + kError + kError) << "a repeat request fails its line";
    expect_line_flags_clear();
    EXPECT_EQ(run("ATE0;A/"), kOk + kError) << "A/ needs the terminator after it";
    expect_line_flags_clear();
    EXPECT_EQ(run("ATE0;A/;E1"), kOk + kError);
    EXPECT_EQ(run("ATE0;E0;"), kOk + kOk + kOk);
    EXPECT_EQ(run("ATE0;"), kOk);
}

TEST_F(Engine, SyntaxErrorsForLongTailsAndLateAt) {
    const std::string tail38 = "+CGDCONT=1,\"IP\",\"" + std::string(20, 'x') + "\"";
    ASSERT_EQ(tail38.size(), 38u);
    EXPECT_EQ(run("ATE0;" + tail38 + "y"), kError) << "39 characters follow: nothing runs";
    EXPECT_EQ(context()->rsp_mode.echo_flag, RMMI_ECHO_ON);
    EXPECT_TRUE(modem_texts().empty());
    expect_line_flags_clear();
    EXPECT_EQ(run("ATE0;" + tail38), kOk + kOk + kOk);
    EXPECT_EQ(modem_texts(), std::vector<std::string>{"AT" + tail38 + "\r"});

    EXPECT_EQ(run("ATE0"), kOk);
    const std::string first40 = "AT+X=" + std::string(33, 'a'); /* "T" of the next at 40 */
    EXPECT_EQ(run(first40 + ";ATE1"), kOk + "ATE1\r" + kOk + kOk);
    EXPECT_EQ(run("ATE0"), kOk);
    EXPECT_EQ(run(first40 + "a;ATE1"), kOk + kError) << "AT beyond position 40";
    EXPECT_EQ(context()->rsp_mode.echo_flag, RMMI_ECHO_OFF);
    EXPECT_EQ(modem_texts(), (std::vector<std::string>{first40 + "\r", first40 + "a\r"}));
    expect_line_flags_clear();
}

TEST_F(Engine, LinesWithoutACommandWriteNothingAndLinesTooLongAreRefused) {
    echo_off();
    for (const char *line : {"", "A", "AAT", "hello", "  a t", "\r\n"}) {
        EXPECT_EQ(run(line), "") << line;
        expect_line_flags_clear();
    }
    rmmi_process_multi_cmd(host_[0], nullptr);
    EXPECT_EQ(host_bytes(), "");
    EXPECT_EQ(run("xyzAT+CSQ"), kOk);
    EXPECT_EQ(run("AT"), kOk);
    EXPECT_EQ(run("AT+X=\"1;2\""), kOk);
    EXPECT_EQ(run(std::string(2047, 'A')), kError);
    expect_line_flags_clear();
    const std::string longest = "AT+X=" + std::string(2041, 'b');
    EXPECT_EQ(run(longest), kOk);
    EXPECT_EQ(modem_texts(), (std::vector<std::string>{"AT+CSQ\r", "AT\r", "AT+X=\"1;2\"\r",
                                                       longest.substr(0, 510)}));
}

TEST_F(Engine, ModemFailuresAnswerErrorAndAnswersPassUnchanged) {
    modemd.answer(ModemReply::short27);
    EXPECT_EQ(run("AT+CSQ"), "AT+CSQ\r" + kError);
    EXPECT_EQ(modemd.take_requests().size(), 1u) << "a failed relay is not repeated";
    modemd.answer(ModemReply::text, "");
    EXPECT_EQ(run("AT+CSQ"), "AT+CSQ\r" + kError);
    modemd.answer(ModemReply::text, "\r\n+CME ERROR: 10\r\n", 14);
    EXPECT_EQ(run("AT+CSQ"), "AT+CSQ\r\r\n+CME ERROR: 10\r\n") << "text wins over result";
    expect_line_flags_clear();
    modemd.answer(ModemReply::text, "");
    EXPECT_EQ(run("ATE0;+CSQ;E1"), kOk + kError + "E1\r" + kOk + kError);
}

TEST_F(Engine, OversizedAndLyingModemAnswersStayWithinTheResponse) {
    echo_off();
    modemd.answer(ModemReply::text, std::string(1420, 'r'));
    const std::string big = run("AT+CSQ");
    EXPECT_GE(big.size(), 1000u);
    EXPECT_LE(big.size(), 1007u);
    EXPECT_EQ(big.find_first_not_of('r'), std::string::npos);
    for (uint32_t claimed : {1u, 1419u, 5000u, 0xFFFFFFFFu}) {
        modemd.answer(ModemReply::text, kOk, 0, claimed);
        const std::string answer = run("AT+CSQ");
        EXPECT_LE(answer.size(), 1007u) << claimed;
        const size_t common = std::min(answer.size(), kOk.size());
        EXPECT_EQ(answer.substr(0, common), kOk.substr(0, common)) << claimed;
        expect_line_flags_clear();
    }
}

TEST_F(Engine, LineArrivingWhileAnErrorIsPendingIsDroppedAndClearsIt) {
    context()->multi_cmd_error = 1;
    context()->is_multi_cmd = 1;
    EXPECT_EQ(run("ATE0"), "");
    EXPECT_EQ(context()->rsp_mode.echo_flag, RMMI_ECHO_ON);
    EXPECT_EQ(context()->multi_cmd_error, 0);
    EXPECT_EQ(context()->is_multi_cmd, 0);
    EXPECT_EQ(run("ATE0"), kOk);
}

/*
 * Lines made of the characters the engine reacts to, and of any bytes at all, in any order
 * and length up to the longest line.
 */
TEST_F(Engine, ArbitraryLinesNeverLeaveAFlagSet) {
    const std::string alphabet = "AaTtEeVv01239+^%$=?;,\"/ \r\nxRELAY";
    std::mt19937 random(20261123);
    for (int i = 0; i < 2000; ++i) {
        std::string line;
        const size_t length = i % 100 == 0 ? random() % 2100 : random() % 60;
        for (size_t k = 0; k < length; ++k)
            line += i % 2 == 0 ? alphabet[random() % alphabet.size()]
                               : static_cast<char>(1 + random() % 255);
        if (i % 3 == 0)
            line = "AT" + line;
        run(line);
        expect_line_flags_clear();
        if (::testing::Test::HasFailure()) {
            ADD_FAILURE() << "after line [" << line << "]";
            break;
        }
    }
}

} // namespace
