#include "engine_context.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(EngineContext, StartsNumericWithEchoUntilConfiguredAndResetsToVerbose) {
    ASSERT_EQ(rmmi_init(), KAL_TRUE);
    rmmi_context_struct *context = rmmi_get_context_ptr();
    EXPECT_EQ(context->rsp_mode.format, RMMI_NUM_PARTIAL_HEAD_TAIL);
    EXPECT_EQ(context->rsp_mode.echo_flag, RMMI_ECHO_ON);
    EXPECT_EQ(context->fd, -1);
    EXPECT_EQ(context->chip_type, 0u);

    g_dbg_print = KAL_DBG_INFO;
    ::testing::internal::CaptureStdout();
    rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_UART_PORT, RMMI_MODEMD_23G,
                                     RMMI_VERBOSE_FULL_HEAD_TAIL);
    rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_SOCKET_PORT, RMMI_MODEMD_LTE,
                                     RMMI_NUM_PARTIAL_HEAD_TAIL);
    const std::string out = ::testing::internal::GetCapturedStdout();
    g_dbg_print = 0;
    EXPECT_NE(out.find(" fd type is [2], chip type is [16]\r\n"), std::string::npos) << out;
    EXPECT_NE(out.find("[VERBOSE_FULL]\r\n"), std::string::npos) << out;
    EXPECT_NE(out.find("[PARITAL]\r\n"), std::string::npos) << out;
    EXPECT_EQ(context->chip_type, static_cast<kal_uint32>(RMMI_MODEMD_LTE));

    context->s_reg.s2 = 'x';
    context->fd = 9;
    rmmi_reset();
    EXPECT_EQ(context->rsp_mode.format, RMMI_VERBOSE_FULL_HEAD_TAIL);
    EXPECT_EQ(context->fd, -1);
    EXPECT_EQ(context->s_reg.s2, 'x');
    EXPECT_EQ(context->chip_type, static_cast<kal_uint32>(RMMI_MODEMD_LTE));

    ASSERT_EQ(rmmi_init(), KAL_TRUE);
    EXPECT_EQ(rmmi_get_context_ptr(), context) << "starting again reuses the one context";
    EXPECT_EQ(context->chip_type, 0u);
}

} // namespace
