#include "kal_common.h"
#include "kal_gather.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <thread>

namespace {

/* Standard output captured while it lives; take() gives what reached it since the last. */
struct CapturedStdout {
    CapturedStdout() { testing::internal::CaptureStdout(); }
    ~CapturedStdout() { take_last(); }
    std::string take() {
        const std::string taken = take_last();
        testing::internal::CaptureStdout();
        return taken;
    }
    static std::string take_last() {
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }
};

/* Messages whose bytes must not depend on whether they were gathered; more of them than
   the gathering buffer holds, so earlier lines must go out first, in order. */
void print_every_form() {
    KERV_WARN("plain=[%s] [%d] [%i] [%u] [%x] [%c] 100%%", "text", -42, INT_MIN, UINT_MAX, 0xbeefu,
              'Z');
    const char *volatile none = nullptr;
    KERV_WARN("null=[%s]", none);
    KERV_WARN("formatted=[%5d] [%-3s] [%.*s] [%ld] [%02x]", 7, "a", 2, "abcdef", -5L, 9u);
    KERV_TAG(KAL_DBG_WARNING, "GET_CTRL_BUFFER");
    KERV_PRINT("always %d\r", 3);
    for (int i = 0; i < 1000; i++)
        KERV_PRINT("line %d", i);
    KERV_PRINT("%s", std::string(5000, 'x').c_str());
    KERV_PRINT("last");
}

TEST(Kal, GatheredLinesAreTheBytesPrintedAtOnce) {
    g_dbg_print = KAL_DBG_WARNING;
    CapturedStdout out;
    print_every_form();
    const std::string at_once = out.take();
    kal_gather_begin();
    print_every_form();
    kal_gather_end();
    EXPECT_EQ(out.take(), at_once);
    g_dbg_print = 0;
}

/* A request's lines wait for its end and then go out in one write; an ERROR line takes the
   lines before it out at once; another thread's lines never wait. */
TEST(Kal, ARequestsLinesGoOutTogetherWhenItEnds) {
    g_dbg_print = KAL_DBG_ERROR;
    CapturedStdout out;
    kal_gather_begin();
    KERV_WARN("one");
    KERV_PRINT("two");
    EXPECT_EQ(out.take(), "");
    std::thread([] { KERV_PRINT("elsewhere"); }).join();
    EXPECT_EQ(out.take(), "elsewhere\n");
    kal_gather_write_on_signal();
    const std::string gathered = out.take();
    EXPECT_NE(gathered.find("one\r\ntwo\n"), std::string::npos) << gathered;
    KERV_ERR("three");
    EXPECT_NE(out.take().find("one\r\ntwo\n[KERV] <"), std::string::npos);
    KERV_PRINT("four");
    EXPECT_EQ(out.take(), "");
    kal_gather_end();
    EXPECT_EQ(out.take(), "four\n");
    g_dbg_print = 0;
}

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
        {7, tag, "[KERV] <GET_CTRL_BUFFER>\r\n"},
        {4, tag, ""},
    };
    CapturedStdout out;
    for (const auto &c : cases) {
        g_dbg_print = c.dbg;
        c.print();
        EXPECT_EQ(out.take(), c.bytes) << c.dbg;
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
