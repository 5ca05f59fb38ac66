#include "kal_common.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

/* The line forms operators grep for, and the level that lets each through. */
TEST(Kal, MessagesHaveTheirFormAndPrintAtOrAboveTheirLevel) {
    void (*gated)() = [] { kal_print_gated(KAL_DBG_DBG, "kerv_srv_thread", 42, "size=[%d]", 7); };
    void (*tag)() = [] { KERV_TAG(KAL_DBG_FUNCTION, "GET_CTRL_BUFFER"); };
    const struct {
        kal_uint32 dbg;
        void (*print)();
        const char *bytes;
    } cases[] = {
        {4, gated, "[KERV] <kerv_srv_thread:42>size=[7]\r\n"},
        {3, gated, ""},
        {7, tag, "[KERV] <GET_CTRL_BUFFER>\r\n"},
        {4, tag, ""},
    };
    for (const auto &c : cases) {
        g_dbg_print = c.dbg;
        testing::internal::CaptureStdout();
        c.print();
        fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.bytes) << c.dbg;
    }
    g_dbg_print = 0;
}

TEST(Kal, ControlBuffersAreZeroFilled) {
    auto *block = static_cast<unsigned char *>(get_ctrl_buffer(333));
    ASSERT_NE(block, nullptr);
    memset(block, 0xFF, 333);
    free_ctrl_buffer(block);
    block = static_cast<unsigned char *>(get_ctrl_buffer(333));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(block), 333), std::string(333, '\0'));
    free_ctrl_buffer(block);
    free_ctrl_buffer(nullptr);
}

} // namespace
