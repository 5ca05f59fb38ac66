/*
 * Extended commands: what a validator registered in the registry is handed by the engine
 * and how its answer reaches the host.
 */
#include "validator_registry.h"

#include "test_support.h"

namespace {

using rmmi_test::EngineTest;
using rmmi_test::FakeModemd;

/* What the last validator call saw. */
struct Seen {
    std::string command;
    kal_uint16 index = 0;
    kal_uint8 mode = 0;
    bool has_test_text = false;
    std::string test_text;
    int room = 0;
} seen;

void remember(rmmi_string_struct *cmd, int *out_len) {
    seen.command = reinterpret_cast<char *>(cmd->string_ptr);
    seen.index = cmd->index;
    seen.mode = cmd->cmd_mode;
    seen.has_test_text = cmd->ip_string != nullptr;
    seen.test_text = seen.has_test_text ? reinterpret_cast<char *>(cmd->ip_string) : "";
    seen.room = *out_len;
}

kal_bool answer_with_mode(rmmi_string_struct *cmd, char *out, int *out_len) {
    remember(cmd, out_len);
    *out_len =
        snprintf(out, static_cast<size_t>(*out_len), "\r\n+KTEST: %d\r\n\r\nOK\r\n", cmd->cmd_mode);
    return KAL_TRUE;
}

kal_bool refuse(rmmi_string_struct *cmd, char *out, int *out_len) {
    remember(cmd, out_len);
    *out_len = snprintf(out, static_cast<size_t>(*out_len), "\r\n+CME ERROR: 50\r\n");
    return KAL_FALSE;
}

/* Fills its whole buffer and claims more than it had: the engine must stay inside it. */
kal_bool overflow_claim(rmmi_string_struct *cmd, char *out, int *out_len) {
    remember(cmd, out_len);
    memset(out, 'w', 1008);
    *out_len = 5000;
    return KAL_TRUE;
}

char ktest[] = "+ktest", knull[] = "+knull", kfail[] = "+kfail", kfill[] = "+kfill";
char kupper[] = "+KUPPER", echo_name[] = "e0", hat[] = "^sysinfo";
char long_name[] = "+abcdefghijklmnopq"; /* a symbol and 17 letters */
char ktest_range[] = "+KTEST: (0-1)";
rmmi_validator_t group[] = {
    {ktest, 0, 0, ktest_range, answer_with_mode},
    {knull, 0, 0, nullptr, answer_with_mode},
    {kfail, 0, 0, nullptr, refuse},
    {kfill, 0, 0, nullptr, overflow_claim},
    {kupper, 0, 0, nullptr, answer_with_mode},
    {echo_name, 0, 0, nullptr, refuse},
    {hat, 0, 0, nullptr, answer_with_mode},
    {long_name, 0, 0, nullptr, answer_with_mode},
    {nullptr, 0, 0, nullptr, nullptr},
};

class Validators : public EngineTest {
  protected:
    static void SetUpTestSuite() {
        init_validator_group();
        set_validator_group(group);
        init_validators();
    }
    void SetUp() override {
        EngineTest::SetUp();
        seen = Seen{};
    }
    FakeModemd modemd;
};

TEST_F(Validators, ValidatorGetsTheCommandAtItsParametersAndItsTextIsTheAnswer) {
    EXPECT_EQ(run("AT+KTEST=1"), "AT+KTEST=1\r\r\n+KTEST: 1\r\n\r\nOK\r\n");
    EXPECT_EQ(seen.command, "AT+KTEST=1\r");
    EXPECT_EQ(seen.index, 9);
    EXPECT_EQ(seen.room, 1007);
    EXPECT_TRUE(seen.has_test_text);
    EXPECT_EQ(seen.test_text, "+KTEST: (0-1)");
    EXPECT_TRUE(modemd.take_requests().empty()) << "extended commands never reach the modem";

    run("AT+KTEST=?");
    EXPECT_EQ(seen.mode, RMMI_TEST_MODE);
    run("AT+KNULL");
    EXPECT_FALSE(seen.has_test_text);
}

TEST_F(Validators, LaterCommandsSeeTheirOwnNameAndFailuresFailTheLine) {
    EXPECT_EQ(run("ATE0;+KTEST=1;+KFAIL"),
              "\r\nOK\r\n\r\n+KTEST: 1\r\n\r\nOK\r\n\r\n+CME ERROR: 50\r\n\r\nERROR\r\n");
    EXPECT_EQ(seen.command, "+KFAIL\r");
    EXPECT_EQ(run("AT+KFAIL"), "\r\n+CME ERROR: 50\r\n") << "single line: its text only";
    expect_line_flags_clear();
}

TEST_F(Validators, LookupUsesTheLowerCaseNameAndInternalCommandsComeFirst) {
    EXPECT_EQ(run("ATE0"), "\r\nOK\r\n");
    EXPECT_EQ(seen.command, "") << "an internal name is never handed to a validator";
    run("AT^SYSINFO");
    EXPECT_EQ(seen.command, "AT^SYSINFO\r");
    run("AT+ABCDEFGHIJKLMNOPQ=1");
    EXPECT_EQ(seen.command, "AT+ABCDEFGHIJKLMNOPQ=1\r") << "17-letter names are kept whole";
    seen = Seen{};
    run("AT+KUPPER");
    EXPECT_EQ(seen.command, "") << "an upper-case key is never found";
    EXPECT_EQ(modemd.take_requests().size(), 1u);
}

TEST_F(Validators, AnswerStaysInsideTheResponseBufferWhateverTheValidatorClaims) {
    EXPECT_EQ(run("ATE0"), "\r\nOK\r\n");
    EXPECT_EQ(run("AT+KFILL"), std::string(1007, 'w'));
}

} // namespace
