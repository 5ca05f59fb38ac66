#include "test_support.h"

namespace {

using namespace rmmi_test;
using bytes = std::vector<kal_uint8>;

TEST(TextCopies, OddLengthsAndLongTextsStayInBounds) {
    bytes val = {0x00, 0x41, 0x00, 0x42};
    rmmi_byte_order_reverse(val.data(), 3);
    EXPECT_EQ(val, (bytes{0x41, 0x00, 0x00, 0x42}));

    /* Longer than an 8-bit position can count. */
    const std::string long_text(300, 'q');
    const bytes src = text_bytes(long_text);
    GuardedBuffer wide(src.size()), back(src.size());
    ascii_to_ucs2(src.data(), reinterpret_cast<kal_wchar *>(wide.data()));
    EXPECT_EQ(wide.text(), long_text);
    ucs2_to_ascii(reinterpret_cast<const kal_wchar *>(wide.data()), back.data());
    EXPECT_EQ(back.text(), long_text);
    EXPECT_TRUE(wide.guards_intact() && back.guards_intact());
}

} // namespace
