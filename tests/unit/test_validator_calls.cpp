/* What the engine hands a registered validator, and how the validator's answer reaches the
   host. */
#include "validator_registry.h"

#include "engine_support.h"

namespace {

/* What the last validator call saw. */
struct Seen {
    std::string command, test_text = "<null>";
    kal_uint16 index = 0;
    kal_uint8 mode = 0;
    int room = 0;
} seen;

kal_bool answer_with_mode(rmmi_string_struct *cmd, char *out, int *out_len) {
    seen = {reinterpret_cast<char *>(cmd->string_ptr),
            cmd->ip_string != nullptr ? reinterpret_cast<char *>(cmd->ip_string) : "<null>",
            cmd->index, cmd->cmd_mode, *out_len};
    *out_len =
        snprintf(out, static_cast<size_t>(*out_len), "\r\n+KTEST: %d\r\n\r\nOK\r\n", cmd->cmd_mode);
    return KAL_TRUE;
}

/* Fills its whole buffer and claims more than it had: the engine must stay inside it. */
kal_bool overflow_claim(rmmi_string_struct *, char *out, int *out_len) {
    memset(out, 'w', 1008);
    *out_len = 5000;
    return KAL_TRUE;
}

char ktest[] = "+ktest", knull[] = "+knull", kfill[] = "+kfill";
char ktest_range[] = "+KTEST: (0-1)";
rmmi_validator_t group[] = {
    {ktest, 0, 0, ktest_range, answer_with_mode},
    {knull, 0, 0, nullptr, answer_with_mode},
    {kfill, 0, 0, nullptr, overflow_claim},
    {nullptr, 0, 0, nullptr, nullptr},
};

class Validators : public rmmi_test::EngineTest {
  protected:
    static void SetUpTestSuite() {
        init_validator_group();
        set_validator_group(group);
        init_validators();
    }
};

TEST_F(Validators, ValidatorGetsTheCommandAtItsParametersAndItsTextIsTheAnswer) {
    EXPECT_EQ(run("AT+KTEST=1"), "AT+KTEST=1\r\r\n+KTEST: 1\r\n\r\nOK\r\n");
    EXPECT_EQ(seen.command, "AT+KTEST=1\r");
    EXPECT_EQ(seen.index, 9);
    EXPECT_EQ(seen.room, 1007);
    EXPECT_EQ(seen.test_text, "+KTEST: (0-1)");
    EXPECT_EQ(run("ATE0;+KNULL=?"), "\r\nOK\r\n\r\n+KTEST: 3\r\n\r\nOK\r\n\r\nOK\r\n");
    EXPECT_EQ(seen.command, "+KNULL=?\r") << "a later command begins with its own name";
    EXPECT_EQ(seen.mode, RMMI_TEST_MODE);
    EXPECT_EQ(seen.test_text, "<null>");
}

TEST_F(Validators, AnswerStaysInsideTheResponseBufferWhateverTheValidatorClaims) {
    EXPECT_EQ(run("ATE0;+KFILL"), "\r\nOK\r\n" + std::string(1007, 'w') + "\r\nOK\r\n");
}

} // namespace
