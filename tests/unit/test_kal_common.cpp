#include "kal_common.h"
#include "test_support.h"

#include <cstdlib>

namespace {

using rmmi_test::stdout_at_level;

TEST(Kal, InitNamesTheEnabledLevels) {
    /* Levels 0 to 5; every level above 5 names all of them too. */
    const char *lines[] = {
        "",
        "dbg = [WARNING]\r\n",
        "dbg = [WARNING, ERROR]\r\n",
        "dbg = [WARNING, ERROR, INFO]\r\n",
        "dbg = [WARNING, ERROR, INFO, DBG]\r\n",
        "dbg = [WARNING, ERROR, INFO, FUNCTION, DBG]\r\n",
    };
    for (unsigned int dbg = 0; dbg < 8; dbg++) {
        unsigned int stored = 99;
        EXPECT_EQ(stdout_at_level(0,
                                  [&] {
                                      kal_init(dbg);
                                      stored = g_dbg_print;
                                  }),
                  lines[dbg < 5 ? dbg : 5])
            << dbg;
        EXPECT_EQ(stored, dbg);
    }
}

int g_warn_line;

void warn_about_null_kerv() {
    g_warn_line = __LINE__ + 1;
    KERV_WARN("kerv is NULL");
}

TEST(Kal, MessageFormsHaveExactBytes) {
    EXPECT_EQ(stdout_at_level(
                  4, [] { kal_print_gated(KAL_DBG_DBG, "kerv_srv_thread", 42, "size=[%d]", 7); }),
              "[KERV] <kerv_srv_thread:42>size=[7]\r\n");
    const std::string warned = stdout_at_level(1, warn_about_null_kerv);
    EXPECT_EQ(warned,
              "[KERV] <warn_about_null_kerv:" + std::to_string(g_warn_line) + ">kerv is NULL\r\n");
    EXPECT_EQ(stdout_at_level(5, [] { KERV_TAG(KAL_DBG_FUNCTION, "GET_CTRL_BUFFER"); }),
              "[KERV] <GET_CTRL_BUFFER>\r\n");
    EXPECT_EQ(stdout_at_level(0, [] { KERV_PRINT("Can't bind on %s : %s !!", "/tmp/k", "x"); }),
              "Can't bind on /tmp/k : x !!\n");
}

TEST(Kal, MessagesPrintOnlyAtOrAboveTheirLevel) {
    for (kal_uint32 dbg = 0; dbg <= 7; dbg++) {
        for (kal_uint32 level = KAL_DBG_WARNING; level <= KAL_DBG_FUNCTION; level++) {
            const std::string gated =
                stdout_at_level(dbg, [&] { kal_print_gated(level, "f", 1, "m"); });
            const std::string tag = stdout_at_level(dbg, [&] { kal_print_tag(level, "T"); });
            EXPECT_EQ(gated, dbg >= level ? "[KERV] <f:1>m\r\n" : "") << dbg << "/" << level;
            EXPECT_EQ(tag, dbg >= level ? "[KERV] <T>\r\n" : "") << dbg << "/" << level;
        }
    }
    EXPECT_EQ(stdout_at_level(0xFFFFFFFFu, [] { KERV_FUNC("deep"); }).empty(), false)
        << "levels compare unsigned";
}

TEST(Kal, ControlBuffersAreZeroedAndTracedAtFunctionLevel) {
    unsigned char *block = nullptr;
    EXPECT_EQ(
        stdout_at_level(5, [&] { block = static_cast<unsigned char *>(get_ctrl_buffer(333)); }),
        "[KERV] <GET_CTRL_BUFFER>\r\n");
    ASSERT_NE(block, nullptr);
    memset(block, 0xFF, 333);
    free_ctrl_buffer(block);
    block = static_cast<unsigned char *>(get_ctrl_buffer(333));
    ASSERT_NE(block, nullptr);
    for (int i = 0; i < 333; i++)
        ASSERT_EQ(block[i], 0) << i;
    EXPECT_EQ(stdout_at_level(4, [&] { free_ctrl_buffer(block); }), "");
    EXPECT_EQ(stdout_at_level(5, [] { free_ctrl_buffer(nullptr); }),
              "[KERV] <FREE_CTRL_BUFFER>\r\n");
    EXPECT_EQ(stdout_at_level(0, [] { free_ctrl_buffer(get_ctrl_buffer(8)); }), "");
}

TEST(Kal, MemoryAndFormatHelpers) {
    char buf[8] = "xxxxxxx";
    EXPECT_EQ(kal_mem_set(buf, 0x12341, 3), buf);
    EXPECT_STREQ(buf, "AAAxxxx");
    EXPECT_EQ(kal_mem_cpy(buf + 3, "bcd", 3), buf + 3);
    EXPECT_STREQ(buf, "AAAbcdx");
    char text[32];
    EXPECT_EQ(kal_sprintf(text, "+CME ERROR: %d", 100), 15);
    EXPECT_STREQ(text, "+CME ERROR: 100");
}

} // namespace
