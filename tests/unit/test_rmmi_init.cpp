#include "rmmi_init.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class EngineContext : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(rmmi_init(), KAL_TRUE); }
    void TearDown() override { g_dbg_print = 0; }
};

TEST_F(EngineContext, StartsNumericWithEchoAndNoOutputOrTarget) {
    const rmmi_context_struct *context = rmmi_get_context_ptr();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context, RMMI_PTR);
    EXPECT_EQ(context->rsp_mode.format, RMMI_NUM_PARTIAL_HEAD_TAIL);
    EXPECT_EQ(context->rsp_mode.echo_flag, RMMI_ECHO_ON);
    EXPECT_EQ(context->rsp_mode.ext_result_code, 0);
    EXPECT_EQ(context->fd, -1);
    EXPECT_EQ(context->chip_type, 0u);
    EXPECT_EQ(context->s_reg.s3, '\r');
    EXPECT_EQ(context->s_reg.s4, '\n');
    EXPECT_EQ(context->s_reg.s2, '+');
    EXPECT_EQ(context->cmd_error_cause, 3);
    EXPECT_EQ(context->response_type, 255);
    EXPECT_EQ(context->register_status.cell_id, 65535);
    EXPECT_EQ(context->error_report_mode, RMMI_SIMPLE_ERROR);
}

TEST_F(EngineContext, InitialisingAgainRestoresDefaultsInTheSameContext) {
    rmmi_context_struct *first = rmmi_get_context_ptr();
    first->chip_type = RMMI_MODEMD_LTE;
    first->rsp_mode.echo_flag = RMMI_ECHO_OFF;
    first->fd = 7;
    ASSERT_EQ(rmmi_init(), KAL_TRUE);
    EXPECT_EQ(rmmi_get_context_ptr(), first);
    EXPECT_EQ(first->chip_type, 0u);
    EXPECT_EQ(first->rsp_mode.echo_flag, RMMI_ECHO_ON);
    EXPECT_EQ(first->fd, -1);
}

TEST_F(EngineContext, ConfigurationSetsTargetFormatAndSourceAndReportsThem) {
    g_dbg_print = KAL_DBG_INFO;
    ::testing::internal::CaptureStdout();
    rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_UART_PORT, RMMI_MODEMD_23G,
                                     RMMI_VERBOSE_FULL_HEAD_TAIL);
    rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_SOCKET_PORT, RMMI_MODEMD_LTE,
                                     RMMI_NUM_PARTIAL_HEAD_TAIL);
    const std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find(" fd type is [2], chip type is [16]\r\n"), std::string::npos) << out;
    EXPECT_NE(out.find("[VERBOSE_FULL]\r\n"), std::string::npos) << out;
    EXPECT_NE(out.find(" fd type is [0], chip type is [1]\r\n"), std::string::npos) << out;
    EXPECT_NE(out.find("[PARITAL]\r\n"), std::string::npos) << out;

    const rmmi_context_struct *context = rmmi_get_context_ptr();
    EXPECT_EQ(context->chip_type, static_cast<kal_uint32>(RMMI_MODEMD_LTE));
    EXPECT_EQ(context->fd_type, static_cast<kal_uint32>(RMMI_PROCESS_CMD_FROM_SOCKET_PORT));
    EXPECT_EQ(context->rsp_mode.format, RMMI_NUM_PARTIAL_HEAD_TAIL);
}

TEST_F(EngineContext, ResetMakesVerboseAndLeavesStartUpOnlyRegisters) {
    rmmi_context_struct *context = rmmi_get_context_ptr();
    context->s_reg.s2 = 'x';
    context->s_reg.s3 = '#';
    context->fd = 9;
    context->chip_type = RMMI_MODEMD_LTE;
    rmmi_reset();
    EXPECT_EQ(context->rsp_mode.format, RMMI_VERBOSE_FULL_HEAD_TAIL);
    EXPECT_EQ(context->rsp_mode.ext_result_code, 1);
    EXPECT_EQ(context->fd, -1);
    EXPECT_EQ(context->s_reg.s3, '\r');
    EXPECT_EQ(context->s_reg.s2, 'x');
    EXPECT_EQ(context->chip_type, static_cast<kal_uint32>(RMMI_MODEMD_LTE));
}

} // namespace
