/* The two modem-daemon clients' own parts: request numbering, the general request's
   verdict and status texts. What a relayed answer becomes is in the transcripts. */
#include "kerv_md_request.h"
#include "modem_relay.h"
#include "modemd_stub.h"

#include "test_support.h"

namespace {

using modemd_stub::Reply;

std::string general(uint32_t request_id, const char *text, int *result,
                    unsigned int out_size = 64) {
    kerv_md_request_t req = {};
    req.target = MODEM_TARGET_LTE;
    req.request_id = request_id;
    req.data_len = 9999; /* never read: the length comes from the text */
    strcpy(req.data, text);
    char out[64];
    memset(out, '#', sizeof(out));
    *result = kerv_md_request(&req, out, out_size);
    return std::string(out, strnlen(out, sizeof(out)));
}

TEST(ModemClients, EachNumbersItsOwnRequestsAndSendsTheTextUpTo510Characters) {
    modemd_stub::Stub modemd;
    kal_uint8 command[] = "AT+CSQ\r";
    char out[1008];
    kal_uint32 length = 1007;
    int result = 0;
    send_cmd_to_md(MODEM_TARGET_MD, command, out, &length);
    general(MODEM_REQ_CREATE_APN, "1,IP,internet", &result);
    send_cmd_to_md(MODEM_TARGET_LTE, command, out, &length);
    kerv_md_request_t unterminated;
    memset(&unterminated, 'a', sizeof(unterminated));
    unterminated.target = MODEM_TARGET_MD;
    unterminated.request_id = MODEM_REQ_SEND_SMS;
    EXPECT_EQ(kerv_md_request(&unterminated, out, sizeof(out)), 0);

    /* token target request_id data_len datagram_size text */
    std::vector<std::string> sent;
    for (const modemd_stub::Request &request : modemd.take_requests())
        sent.push_back(std::to_string(request.token) + " " + std::to_string(request.target) + " " +
                       std::to_string(request.request_id) + " " + std::to_string(request.data_len) +
                       " " + std::to_string(request.datagram_size) + " " + request.data);
    EXPECT_EQ(sent,
              (std::vector<std::string>{"1000 16 998 7 27 AT+CSQ\r", "2000 1 7 13 33 1,IP,internet",
                                        "1001 1 998 7 27 AT+CSQ\r",
                                        "2001 16 11 510 530 " + std::string(510, 'a')}));
}

TEST(ModemClients, GeneralRequestSucceedsOnlyOnResultOkAndAlwaysSaysWhy) {
    const struct {
        Reply reply;
        kal_uint32 modem_result;
        unsigned int out_size;
        int result;
        std::string out;
    } cases[] = {
        {Reply::text, MODEM_RET_OK, 64, 0, "ok"},
        {Reply::text, MODEM_RET_QUERY_ERROR, 64, 1, "error,7,response result code is error"},
        {Reply::text, MODEM_RET_ERROR_OTHERS, 64, 1, "error,9999,response result code is error"},
        {Reply::short27, 0, 64, 1, "error,10003,can't receive the response. ret = 27"},
        {Reply::short27, 0, 6, 1, "error"},
        {Reply::text, MODEM_RET_OK, 1, 0, ""},
        {Reply::silent, 0, 64, 1, "error,10006,command timeout"},
    };
    modemd_stub::Stub modemd;
    rmmi_test::ScopedSetting short_waits("KERVD_MODEMD_WAIT_MS", "10");
    for (const auto &c : cases) {
        modemd.answer(c.reply, "\r\nOK\r\n", c.modem_result);
        int result = -2;
        EXPECT_EQ(general(MODEM_REQ_GET_INFO, "", &result, c.out_size), c.out);
        EXPECT_EQ(result, c.result) << c.out;
    }
    int result = 0;
    std::string out;
    {
        rmmi_test::NoFreeDescriptors exhausted;
        out = general(MODEM_REQ_GET_STATUS, "", &result);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(out, "error,10001,can't create the socket");
}

/* A relay the modem daemon never answers leaves the caller's buffer alone, and its log
   line does not read it. */
TEST(ModemClients, RelayWithoutAnAnswerFailsAndLogsNoTextOfTheCaller) {
    modemd_stub::Stub modemd;
    modemd.answer(Reply::silent, "", 0);
    rmmi_test::ScopedSetting short_waits("KERVD_MODEMD_WAIT_MS", "10");
    kal_uint8 command[] = "ATE0\r";
    char out[16] = "stale";
    kal_uint32 length = sizeof(out) - 1;
    g_dbg_print = KAL_DBG_WARNING;
    testing::internal::CaptureStdout();
    EXPECT_EQ(send_cmd_to_md(MODEM_TARGET_LTE, command, out, &length), kal_uint32{NO_NW_SERVICE});
    fflush(stdout);
    g_dbg_print = 0;
    const std::string log = testing::internal::GetCapturedStdout();
    EXPECT_NE(log.find("libmodemd response = []"), std::string::npos) << log;
    EXPECT_STREQ(out, "stale");
}

} // namespace
