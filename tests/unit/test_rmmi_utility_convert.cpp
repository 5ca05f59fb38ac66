#include "test_support.h"

namespace {

using namespace rmmi_test;

using bytes = std::vector<kal_uint8>;

TEST(PrintHex, ZeroPairEndsHexTextAnywhereButUcs2OnlyOnEvenPositions) {
    const struct {
        bytes val;
        const char *hex;
        const char *ucs2;
    } cases[] = {
        {{0x41, 0x00, 0x42, 0x00, 0x00, 0x00}, "410042", "41004200"},
        {{0x00, 0x41, 0x00, 0x42, 0x00, 0x00}, "00410042", "00410042"},
        {{0x00, 0x00}, "", ""},
    };
    for (const auto &c : cases) {
        char str[16];
        print_hex_value(c.val.data(), str);
        EXPECT_STREQ(str, c.hex);
        rmmi_print_ucs2(reinterpret_cast<const kal_wchar *>(c.val.data()), str);
        EXPECT_STREQ(str, c.ucs2);
    }
    const kal_uint8 val[] = {0x0A, 0xFF, 0x00};
    char str[8];
    print_hex_value_ext(val, str, 3);
    EXPECT_STREQ(str, "0AFF00");
    print_hex_value_ext(val, str, 0);
    EXPECT_STREQ(str, "");
}

TEST(DottedDecimal, StopsOnceLongerThanSixteenCharacters) {
    const kal_uint8 address[] = {192, 168, 0, 1};
    const bytes hundreds(8, 100);
    char str[32];
    rmmi_value2string(str, address, 4);
    EXPECT_STREQ(str, "192.168.0.1");
    rmmi_value2string(str, address, 1);
    EXPECT_STREQ(str, "192");
    rmmi_value2string(str, hundreds.data(), 8);
    EXPECT_STREQ(str, "100.100.100.100.100");
    char untouched[4] = "xyz";
    rmmi_value2string(untouched, address, 0);
    EXPECT_STREQ(untouched, "xyz");
}

TEST(ByteOrder, SwapsWholePairsOnly) {
    bytes val = {0x00, 0x41, 0x00, 0x42};
    rmmi_byte_order_reverse(val.data(), 3);
    EXPECT_EQ(val, (bytes{0x41, 0x00, 0x00, 0x42}));
}

TEST(TextCopies, UpperCaseAndCopiesCoverTheWholeText) {
    bytes text = text_bytes("aZ9-b{`z");
    toUpper(text.data());
    EXPECT_EQ(as_string(text.data()), "AZ9-B{`Z");

    /* Longer than an 8-bit position can count. */
    const std::string long_text(300, 'q');
    const bytes src = text_bytes(long_text);
    output_buffer wide(src.size());
    ascii_to_ucs2(src.data(), reinterpret_cast<kal_wchar *>(wide.data()));
    EXPECT_EQ(wide.text(), long_text);
    EXPECT_TRUE(wide.guards_intact());

    output_buffer back(src.size());
    EXPECT_EQ(ucs2_to_ascii(reinterpret_cast<const kal_wchar *>(wide.data()), back.data()),
              KAL_TRUE);
    EXPECT_EQ(back.text(), long_text);
    EXPECT_TRUE(back.guards_intact());
}

} // namespace
