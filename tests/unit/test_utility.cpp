#include "utility.h"

#include "fake_modemd.h"
#include "rmmi_common.h"

#include <gtest/gtest.h>

namespace {

/* Requests relayed by this process so far: the next one carries token 1000 + this. */
kal_uint32 relayed_so_far = 0;

struct Relay {
    kal_uint32 result;
    std::string out;
    kal_uint32 length;
};

Relay relay(FakeModemd &modemd, kal_uint32 target, const std::string &command,
            kal_uint32 out_size = 1007) {
    char out[1008] = {};
    kal_uint32 length = out_size;
    std::string in = command;
    const kal_uint32 result =
        send_cmd_to_md(target, reinterpret_cast<kal_uint8 *>(in.data()), out, &length);
    ++relayed_so_far;
    modemd.wait();
    return {result, out, length};
}

TEST(ModemRelay, CommandGoesOutAsOneRequestWithItsTerminationCharacter) {
    FakeModemd modemd;
    modemd.serve(response_datagram(0, 6, "\r\nOK\r\n"));
    const kal_uint32 token = 1000 + relayed_so_far;
    relay(modemd, MODEM_TARGET_MD, "AT+CSQ\r");
    expect_request(modemd, token, 16, 998, "AT+CSQ\r");

    FakeModemd lte;
    lte.serve(response_datagram(0, 6, "\r\nOK\r\n"));
    relay(lte, MODEM_TARGET_LTE, "ATI\r");
    EXPECT_EQ(lte.request_field(4), token + 1);
    EXPECT_EQ(lte.request_field(8), 1u);
}

TEST(ModemRelay, TextIsCutTo510CharactersAndEmptyTextSendsTheHeaderAlone) {
    FakeModemd modemd;
    modemd.serve(response_datagram(0, 6, "\r\nOK\r\n"));
    const std::string long_command = "AT+X=" + std::string(595, '7');
    relay(modemd, MODEM_TARGET_MD, long_command);
    expect_request(modemd, 1000 + relayed_so_far - 1, 16, 998, long_command.substr(0, 510));

    FakeModemd empty;
    empty.serve(response_datagram(0, 6, "\r\nOK\r\n"));
    relay(empty, MODEM_TARGET_MD, "");
    expect_request(empty, 1000 + relayed_so_far - 1, 16, 998, "");
}

struct AnswerCase {
    const char *name;
    std::vector<char> datagram;
    kal_uint32 out_size;
    kal_uint32 result;
    std::string out;
    kal_uint32 length;
};

TEST(ModemRelay, AnswersDecideResultTextAndLength) {
    const std::vector<char> twenty_seven(27, '\0');
    const AnswerCase cases[] = {
        {"text counted exactly", response_datagram(0, 6, "\r\nOK\r\n"), 1007, RMMI_NO_ERR,
         "\r\nOK\r\n", 7},
        {"data_len counts the NUL: line feed kept", response_datagram(0, 7, "\r\nOK\r\n"), 1007,
         RMMI_NO_ERR, "\r\nOK\r\n\n", 8},
        {"failure result with text still relays the text",
         response_datagram(14, 9, "\r\nERROR\r\n"), 1007, RMMI_NO_ERR, "\r\nERROR\r\n", 10},
        {"data_len shorter than the text cuts it", response_datagram(0, 3, "\r\nOK\r\n"), 1007,
         RMMI_NO_ERR, "\r\nO", 4},
        {"caller's buffer cuts the text", response_datagram(0, 6, "\r\nOK\r\n"), 5, RMMI_NO_ERR,
         "\r\nOK", 7},
        {"header only, data_len 0", response_datagram(14, 0, ""), 1007, NO_NW_SERVICE,
         "error,14,response result code is error", 1007},
        {"27 bytes is no answer", twenty_seven, 1007, NO_NW_SERVICE,
         "error,10003,can't receive the response. ret = 27", 1007},
    };
    for (const AnswerCase &c : cases) {
        SCOPED_TRACE(c.name);
        FakeModemd modemd;
        modemd.serve(c.datagram);
        const Relay got = relay(modemd, MODEM_TARGET_MD, "AT+CSQ\r", c.out_size);
        EXPECT_EQ(got.result, c.result);
        EXPECT_EQ(got.out, c.out);
        EXPECT_EQ(got.length, c.length);
    }
}

TEST(ModemRelay, FullSizeAnswerStaysInsideTheResponseText) {
    FakeModemd modemd;
    std::vector<char> datagram = response_datagram(0, 0xFFFFFFF0u, std::string(1420, 'x'));
    modemd.serve(datagram);
    const Relay got = relay(modemd, MODEM_TARGET_MD, "AT\r");
    EXPECT_EQ(got.result, RMMI_NO_ERR);
    EXPECT_EQ(got.out, std::string(1006, 'x'));
}

TEST(ModemRelay, NoSocketFailsWithoutTouchingTheAnswer) {
    char out[16] = "untouched";
    kal_uint32 length = sizeof(out) - 1;
    kal_uint8 in[] = "AT\r";
    kal_uint32 result;
    {
        NoFreeDescriptors exhausted;
        result = send_cmd_to_md(MODEM_TARGET_MD, in, out, &length);
    }
    ++relayed_so_far;
    EXPECT_EQ(result, NO_NW_SERVICE);
    EXPECT_STREQ(out, "untouched");
    EXPECT_EQ(length, sizeof(out) - 1);
}

} // namespace
