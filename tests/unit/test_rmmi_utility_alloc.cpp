/*
 * The file-name validator when the heap is exhausted. This program replaces the
 * control-buffer allocator (the executable's definition takes precedence over the
 * utility library's own), so that an allocation failure can be had on demand.
 */
#include "test_support.h"

#include <cstdlib>

namespace {
bool g_heap_exhausted = false;
} // namespace

extern "C" void *get_ctrl_buffer(kal_uint32 allocSize) {
    return g_heap_exhausted ? nullptr : calloc(1, allocSize);
}

namespace {

TEST(FilenameValidator, ExhaustedHeapRefusesTheName) {
    for (kal_uint8 coding_scheme : {RMMI_CHSET_IRA, RMMI_CHSET_UCS2}) {
        rmmi_test::cursor_fixture f("\"0041\"\r");
        rmmi_test::output_buffer name(8);
        kal_uint16 length = 0xBEEF;
        kal_uint8 cause = RMMI_PARSE_OK;
        g_heap_exhausted = true;
        EXPECT_EQ(rmmi_filename_validator(coding_scheme, &f.cursor, ',', '\r', 4,
                                          reinterpret_cast<kal_wchar *>(name.data()), &length,
                                          &cause),
                  255u);
        g_heap_exhausted = false;
        EXPECT_EQ(cause, RMMI_PARSE_ERROR);
        EXPECT_EQ(length, 0);
        EXPECT_TRUE(name.guards_intact());
    }
}

} // namespace
