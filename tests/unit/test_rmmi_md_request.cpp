#include "kerv_md_request.h"

#include "engine_support.h"

namespace {

using rmmi_test::FakeModemd;
using rmmi_test::ModemReply;

using rmmi_test::general_request;
using rmmi_test::general_requests_sent;

TEST(ModemRequest, RequestCarriesItsOwnCounterTargetAndIdentifier) {
    FakeModemd modemd;
    const kal_uint32 token = 2000 + general_requests_sent;
    const rmmi_test::ModemAnswer got =
        general_request(MODEM_TARGET_LTE, MODEM_REQ_CREATE_APN, "1,IP,internet");
    EXPECT_EQ(got.result, 0u);
    EXPECT_EQ(got.out, "ok");
    rmmi_test::expect_one_request(modemd, token, 1, 7, "1,IP,internet");
    general_request(MODEM_TARGET_DAEMON, MODEM_REQ_GET_STATUS, "");
    rmmi_test::expect_one_request(modemd, token + 1, MODEM_TARGET_DAEMON, MODEM_REQ_GET_STATUS, "");

    /* A record text without a terminator is cut to 510 characters. */
    kerv_md_request_t req;
    memset(&req, 'a', sizeof(req));
    req.target = MODEM_TARGET_MD;
    req.request_id = MODEM_REQ_SEND_SMS;
    char out[8];
    EXPECT_EQ(kerv_md_request(&req, out, sizeof(out)), 0);
    ++general_requests_sent;
    rmmi_test::expect_one_request(modemd, token + 2, MODEM_TARGET_MD, MODEM_REQ_SEND_SMS,
                                  std::string(510, 'a'));
}

TEST(ModemRequest, OnlyResultOkIsSuccess) {
    const struct {
        const char *name;
        ModemReply reply;
        kal_uint32 modem_result;
        unsigned int out_size;
        kal_uint32 result;
        std::string out;
    } cases[] = {
        {"ok with text", ModemReply::text, MODEM_RET_OK, 128, 0, "ok"},
        {"failure result despite text", ModemReply::text, MODEM_RET_QUERY_ERROR, 128, 1,
         "error,7,response result code is error"},
        {"large result", ModemReply::text, MODEM_RET_ERROR_OTHERS, 128, 1,
         "error,9999,response result code is error"},
        {"27 bytes", ModemReply::short27, 0, 128, 1,
         "error,10003,can't receive the response. ret = 27"},
        {"status cut to the caller's size", ModemReply::short27, 0, 6, 1, "error"},
        {"ok cut to one byte", ModemReply::text, MODEM_RET_OK, 1, 0, ""},
    };
    FakeModemd modemd;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        modemd.answer(c.reply, "\r\nOK\r\n", c.modem_result);
        const rmmi_test::ModemAnswer got =
            general_request(MODEM_TARGET_MD, MODEM_REQ_GET_INFO, "", c.out_size);
        EXPECT_EQ(got.result, c.result);
        EXPECT_EQ(got.out, c.out);
    }
}

TEST(ModemRequest, NoSocketIsMinusOneWithItsStatusText) {
    kerv_md_request_t req = {};
    req.request_id = MODEM_REQ_GET_STATUS;
    char out[64] = {};
    int result;
    {
        rmmi_test::NoFreeDescriptors exhausted;
        result = kerv_md_request(&req, out, sizeof(out));
    }
    ++general_requests_sent;
    EXPECT_EQ(result, -1);
    EXPECT_STREQ(out, "error,10001,can't create the socket");
}

} // namespace
