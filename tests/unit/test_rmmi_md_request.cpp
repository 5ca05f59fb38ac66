#include "kerv_md_request.h"

#include "fake_modemd.h"

#include <gtest/gtest.h>

namespace {

/* General requests sent by this process so far: the next one carries token 2000 + this. */
kal_uint32 requested_so_far = 0;

struct Outcome {
    int result;
    std::string out;
};

Outcome request(FakeModemd &modemd, kal_uint32 target, kal_uint32 request_id,
                const std::string &text, unsigned int out_size = 128) {
    kerv_md_request_t req = {};
    req.target = target;
    req.request_id = request_id;
    req.data_len = 9999; /* never read: the length comes from the text */
    memcpy(req.data, text.data(), text.size());
    char out[128];
    memset(out, '#', sizeof(out));
    const int result = kerv_md_request(&req, out, out_size);
    ++requested_so_far;
    modemd.wait();
    return {result, std::string(out, strnlen(out, sizeof(out)))};
}

TEST(ModemRequest, RequestCarriesItsOwnCounterTargetAndIdentifier) {
    FakeModemd modemd;
    modemd.serve(response_datagram(MODEM_RET_OK, 0, ""));
    const kal_uint32 token = 2000 + requested_so_far;
    const Outcome got = request(modemd, MODEM_TARGET_LTE, MODEM_REQ_CREATE_APN, "1,IP,internet");
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.out, "ok");
    expect_request(modemd, token, 1, 7, "1,IP,internet");

    FakeModemd next;
    next.serve(response_datagram(MODEM_RET_OK, 0, ""));
    request(next, MODEM_TARGET_DAEMON, MODEM_REQ_GET_STATUS, "");
    EXPECT_EQ(next.request_field(4), token + 1);
    EXPECT_EQ(next.request.size(), 20u);
}

TEST(ModemRequest, UnterminatedRecordTextIsCutTo510Characters) {
    FakeModemd modemd;
    modemd.serve(response_datagram(MODEM_RET_OK, 0, ""));
    kerv_md_request_t req;
    memset(&req, 'a', sizeof(req));
    req.target = MODEM_TARGET_MD;
    req.request_id = MODEM_REQ_SEND_SMS;
    char out[8];
    EXPECT_EQ(kerv_md_request(&req, out, sizeof(out)), 0);
    ++requested_so_far;
    modemd.wait();
    expect_request(modemd, 2000 + requested_so_far - 1, MODEM_TARGET_MD, MODEM_REQ_SEND_SMS,
                   std::string(510, 'a'));
}

struct AnswerCase {
    const char *name;
    std::vector<char> datagram;
    unsigned int out_size;
    int result;
    std::string out;
};

TEST(ModemRequest, OnlyResultOkIsSuccess) {
    const AnswerCase cases[] = {
        {"ok with text", response_datagram(MODEM_RET_OK, 6, "\r\nOK\r\n"), 128, 0, "ok"},
        {"failure result despite text", response_datagram(MODEM_RET_QUERY_ERROR, 6, "\r\nOK\r\n"),
         128, 1, "error,7,response result code is error"},
        {"large result", response_datagram(MODEM_RET_ERROR_OTHERS, 0, ""), 128, 1,
         "error,9999,response result code is error"},
        {"27 bytes", std::vector<char>(27, '\0'), 128, 1,
         "error,10003,can't receive the response. ret = 27"},
        {"status cut to the caller's size", std::vector<char>(27, '\0'), 6, 1, "error"},
        {"ok cut to one byte", response_datagram(MODEM_RET_OK, 0, ""), 1, 0, ""},
    };
    for (const AnswerCase &c : cases) {
        SCOPED_TRACE(c.name);
        FakeModemd modemd;
        modemd.serve(c.datagram);
        const Outcome got = request(modemd, MODEM_TARGET_MD, MODEM_REQ_GET_INFO, "", c.out_size);
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
        NoFreeDescriptors exhausted;
        result = kerv_md_request(&req, out, sizeof(out));
    }
    ++requested_so_far;
    EXPECT_EQ(result, -1);
    EXPECT_STREQ(out, "error,10001,can't create the socket");
}

} // namespace
