/* The formatter and the result codes in the modes a host cannot switch; what a line
   answers is in the transcripts. */
#include "response_format.h"

#include "engine_support.h"

namespace {

std::string expand(const char *fmt, std::vector<void *> args, kal_uint8 nos_arg) {
    kal_uint8 out[64];
    memset(out, 0xAA, sizeof(out));
    const kal_uint16 n =
        rmmi_fast_string_print(out, reinterpret_cast<const kal_uint8 *>(fmt), args.data(), nos_arg);
    EXPECT_EQ(out[n], 0) << "the count stops at the terminating zero";
    return std::string(reinterpret_cast<char *>(out), n);
}

TEST(FastStringPrint, DirectivesReadTheirOwnWidthAndSign) {
    kal_uint8 byte3 = 3, x = 'x';
    kal_uint16 all16 = 65535;
    kal_uint32 all32 = 4294967295u, zero32 = 0;
    kal_int32 min32 = INT32_MIN, minus5 = -5, plus7 = 7;
    char abc[] = "abc";
    const struct {
        const char *fmt;
        std::vector<void *> args;
        kal_uint8 nos_arg;
        const char *expected;
    } cases[] = {
        {"\r\n%d\r\n", {&byte3}, 1, "\r\n3\r\n"},
        {"\r\n%d\r\n", {&byte3}, 0, "\r\n%d\r\n"},
        {"%u/%l", {&all16, &all16}, 1, "65535/-1"},
        {"%e/%g", {&all32, &all32}, 1, "4294967295/-1"},
        {"%g %e", {&min32, &zero32}, 1, "-2147483648 0"},
        {"%g,%g", {&minus5, &plus7}, 1, "-5,7"},
        {"[%s]%c", {abc, &x}, 1, "[abc]x"},
        {"100%% %x%d", {&byte3}, 1, "100% x3"},
        {"%d%", {&byte3}, 1, "3%"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(expand(c.fmt, c.args, c.nos_arg), c.expected) << c.fmt;
}

class ResultCodes : public rmmi_test::EngineTest {
  protected:
    std::string result(kal_uint8 rsp_type, kal_uint16 cause) {
        context()->fd = host_[0];
        rmmi_result_code_fmttr(rsp_type, cause);
        return host_bytes();
    }
};

TEST_F(ResultCodes, FormAndErrorReportModeDecideTheBytes) {
    const struct {
        kal_uint8 mode, format, rsp_type;
        kal_uint16 cause;
        const char *bytes;
    } cases[] = {
        {0, 1, RMMI_RCODE_OK, 1000, "\r\nOK\r\n"},
        {0, 1, RMMI_RCODE_ERROR, 603, "\r\nERROR\r\n"},
        {0, 1, RMMI_RCODE_NO_CARRIER, 0, "\r\nNO CARRIER\r\n"},
        {0, 7, RMMI_RCODE_OK, 1000, "\r\nOK\r\n"},
        {0, 0, RMMI_RCODE_OK, 1000, "\r\n0\r\n"},
        {0, 0, RMMI_RCODE_ERROR, 603, "\r\n3\r\n"},
        {0, 0, 5, 0, ""},
        {1, 1, RMMI_RCODE_ERROR, 302, "\r\n+CME ERROR: 3\r\n"},
        {1, 0, RMMI_RCODE_ERROR, 10, "\r\n+CME ERROR: 10\r\n"},
        {1, 1, RMMI_RCODE_ERROR, 65535, "\r\n+CME ERROR: 65535\r\n"},
        {2, 1, RMMI_RCODE_ERROR, 159, "\r\n+CME ERROR: 159\r\n"},
        {2, 0, RMMI_RCODE_ERROR, 160, "\r\nERROR\r\n"},
    };
    for (const auto &c : cases) {
        context()->error_report_mode = c.mode;
        context()->rsp_mode.format = c.format;
        EXPECT_EQ(result(c.rsp_type, c.cause), c.bytes)
            << int(c.mode) << "/" << int(c.format) << "/" << int(c.rsp_type) << "/" << c.cause;
    }
}

} // namespace
