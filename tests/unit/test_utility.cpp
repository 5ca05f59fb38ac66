#include "modem_relay.h"

#include "rmmi_common.h"
#include "engine_support.h"

namespace {

using rmmi_test::FakeModemd;
using rmmi_test::ModemReply;

using rmmi_test::relay_command;
using rmmi_test::relays_sent;

TEST(ModemRelay, CommandGoesOutAsOneRequestWithItsTerminationCharacterAndCutTo510) {
    FakeModemd modemd;
    const kal_uint32 token = 1000 + relays_sent;
    relay_command(MODEM_TARGET_MD, "AT+CSQ\r");
    rmmi_test::expect_one_request(modemd, token, 16, 998, "AT+CSQ\r");
    relay_command(MODEM_TARGET_LTE, "ATI\r");
    rmmi_test::expect_one_request(modemd, token + 1, 1, 998, "ATI\r");
    const std::string long_command = "AT+X=" + std::string(595, '7');
    relay_command(MODEM_TARGET_MD, long_command);
    rmmi_test::expect_one_request(modemd, token + 2, 16, 998, long_command.substr(0, 510));
    relay_command(MODEM_TARGET_MD, "");
    rmmi_test::expect_one_request(modemd, token + 3, 16, 998, "");
}

TEST(ModemRelay, AnswersDecideResultTextAndLength) {
    const struct {
        const char *name;
        ModemReply reply;
        std::string text;
        kal_uint32 modem_result;
        int64_t data_len;
        kal_uint32 out_size;
        kal_uint32 result;
        std::string out;
        kal_uint32 length;
    } cases[] = {
        {"text counted exactly", ModemReply::text, "\r\nOK\r\n", 0, 6, 1007, RMMI_NO_ERR,
         "\r\nOK\r\n", 7},
        {"data_len counts the NUL: line feed kept", ModemReply::text, "\r\nOK\r\n", 0, 7, 1007,
         RMMI_NO_ERR, "\r\nOK\r\n\n", 8},
        {"failure result with text still relays the text", ModemReply::text, "\r\nERROR\r\n", 14, 9,
         1007, RMMI_NO_ERR, "\r\nERROR\r\n", 10},
        {"data_len shorter than the text cuts it", ModemReply::text, "\r\nOK\r\n", 0, 3, 1007,
         RMMI_NO_ERR, "\r\nO", 4},
        {"caller's buffer cuts the text", ModemReply::text, "\r\nOK\r\n", 0, 6, 5, RMMI_NO_ERR,
         "\r\nOK", 7},
        {"header only, data_len 0", ModemReply::text, "", 14, 0, 1007, NO_NW_SERVICE,
         "error,14,response result code is error", 1007},
        {"27 bytes is no answer", ModemReply::short27, "", 0, 0, 1007, NO_NW_SERVICE,
         "error,10003,can't receive the response. ret = 27", 1007},
        {"a lying data_len stays inside the response text", ModemReply::text,
         std::string(1420, 'x'), 0, 0xFFFFFFF0u, 1007, RMMI_NO_ERR, std::string(1006, 'x'),
         0xFFFFFFF1u},
    };
    FakeModemd modemd;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        modemd.answer(c.reply, c.text, c.modem_result, c.data_len);
        const rmmi_test::ModemAnswer got = relay_command(MODEM_TARGET_MD, "AT+CSQ\r", c.out_size);
        EXPECT_EQ(got.result, c.result);
        EXPECT_EQ(got.out, c.out);
        EXPECT_EQ(got.length, c.length);
    }
}

TEST(ModemRelay, NoSocketFailsWithoutTouchingTheAnswer) {
    char out[16] = "untouched";
    kal_uint32 length = sizeof(out) - 1;
    kal_uint8 in[] = "AT\r";
    kal_uint32 result;
    {
        rmmi_test::NoFreeDescriptors exhausted;
        result = send_cmd_to_md(MODEM_TARGET_MD, in, out, &length);
    }
    ++relays_sent;
    EXPECT_EQ(result, NO_NW_SERVICE);
    EXPECT_STREQ(out, "untouched");
    EXPECT_EQ(length, sizeof(out) - 1);
}

} // namespace
