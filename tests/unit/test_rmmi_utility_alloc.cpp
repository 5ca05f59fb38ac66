/*
 * The file-name validator when the heap is exhausted. This program replaces the
 * control-buffer allocator (the executable's definition takes precedence over the
 * utility library's own), so that an allocation failure can be had on demand.
 */
#include "test_support.h"

#include <cstdlib>

namespace {

using namespace rmmi_test;
bool g_heap_exhausted = false;
} // namespace

extern "C" void *get_ctrl_buffer(kal_uint32 allocSize) {
    return g_heap_exhausted ? nullptr : calloc(1, allocSize);
}

namespace {

TEST(FilenameValidator, ExhaustedHeapRefusesTheNameAndLeavesTheCursor) {
    for (kal_uint8 coding_scheme : {RMMI_CHSET_IRA, RMMI_CHSET_UCS2}) {
        cursor_fixture f("\"0041\"\r");
        output_buffer name(8);
        kal_uint16 length = 0xBEEF;
        kal_uint8 cause = RMMI_PARSE_OK;
        g_heap_exhausted = true;
        const kal_uint32 result =
            rmmi_filename_validator(coding_scheme, &f.cursor, ',', '\r', 4,
                                    reinterpret_cast<kal_wchar *>(name.data()), &length, &cause);
        g_heap_exhausted = false;
        EXPECT_EQ(result, 255u);
        EXPECT_EQ(cause, RMMI_PARSE_ERROR);
        EXPECT_EQ(length, 0);
        EXPECT_EQ(f.cursor.index, 0);
        EXPECT_EQ(std::vector<kal_uint8>(name.bytes.begin(), name.bytes.begin() + 8),
                  std::vector<kal_uint8>(8, 0));
        EXPECT_TRUE(name.guards_intact());
    }
}

} // namespace
