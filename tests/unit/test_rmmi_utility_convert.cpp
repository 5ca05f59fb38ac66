#include "rmmi_utility_fixture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr kal_uint8 kGuard = 0xAA;

std::string printed(void (*print)(const kal_uint8 *, kal_char *), std::vector<kal_uint8> val) {
    char str[64];
    print(val.data(), str);
    return str;
}

void print_ucs2(const kal_uint8 *val, kal_char *str) {
    rmmi_print_ucs2(reinterpret_cast<const kal_wchar *>(val), str);
}

TEST(PrintHex, ZeroPairEndsHexTextAnywhereButUcs2OnlyOnEvenPositions) {
    const struct {
        std::vector<kal_uint8> val;
        const char *hex;
        const char *ucs2;
    } cases[] = {
        {{0x41, 0x00, 0x42, 0x00, 0x00, 0x00}, "410042", "41004200"},
        {{0x00, 0x41, 0x00, 0x42, 0x00, 0x00}, "00410042", "00410042"},
        {{0x00, 0x00}, "", ""},
        {{0xFF, 0x0A, 0x00, 0x00}, "FF0A", "FF0A"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(printed(print_hex_value, c.val), c.hex);
        EXPECT_EQ(printed(print_ucs2, c.val), c.ucs2);
    }
}

TEST(PrintHex, ExtPrintsExactlyLengthBytes) {
    const kal_uint8 val[] = {0x0A, 0xFF, 0x00};
    char str[8];
    print_hex_value_ext(val, str, 3);
    EXPECT_STREQ(str, "0AFF00");
    print_hex_value_ext(val, str, 0);
    EXPECT_STREQ(str, "");
}

TEST(DottedDecimal, StopsOnceLongerThanSixteenCharacters) {
    const kal_uint8 address[] = {192, 168, 0, 1};
    const std::vector<kal_uint8> hundreds(8, 100);
    const std::vector<kal_uint8> short_bytes(10, 7);
    const struct {
        const kal_uint8 *val;
        kal_uint8 cnt;
        const char *text;
    } cases[] = {
        {address, 4, "192.168.0.1"},
        {address, 1, "192"},
        {hundreds.data(), 8, "100.100.100.100.100"},
        {short_bytes.data(), 10, "7.7.7.7.7.7.7.7.7"},
    };
    for (const auto &c : cases) {
        char str[32];
        rmmi_value2string(str, c.val, c.cnt);
        EXPECT_STREQ(str, c.text);
    }
    char untouched[4] = "xyz";
    rmmi_value2string(untouched, address, 0);
    EXPECT_STREQ(untouched, "xyz");
}

TEST(ByteOrder, SwapsWholePairsOnly) {
    const struct {
        kal_uint16 length;
        std::vector<kal_uint8> after;
    } cases[] = {
        {4, {0x41, 0x00, 0x42, 0x00}},
        {3, {0x41, 0x00, 0x00, 0x42}},
        {1, {0x00, 0x41, 0x00, 0x42}},
        {0, {0x00, 0x41, 0x00, 0x42}},
    };
    for (const auto &c : cases) {
        std::vector<kal_uint8> bytes = {0x00, 0x41, 0x00, 0x42};
        rmmi_byte_order_reverse(bytes.data(), c.length);
        EXPECT_EQ(bytes, c.after) << "length " << c.length;
    }
}

TEST(TextCopies, UpperCaseAndCopiesCoverTheWholeText) {
    std::vector<kal_uint8> text = text_bytes("aZ9-b{`z");
    toUpper(text.data());
    EXPECT_EQ(as_string(text), "AZ9-B{`Z");

    /* Longer than an 8-bit position can count. */
    const std::string long_text(300, 'q');
    const std::vector<kal_uint8> src = text_bytes(long_text);
    std::vector<kal_wchar> wide(src.size() + 1, static_cast<kal_wchar>(kGuard));
    ascii_to_ucs2(src.data(), wide.data());
    EXPECT_EQ(std::string(wide.data()), long_text);
    EXPECT_EQ(static_cast<kal_uint8>(wide[src.size()]), kGuard);

    std::vector<kal_uint8> back(src.size() + 1, kGuard);
    EXPECT_EQ(ucs2_to_ascii(wide.data(), back.data()), KAL_TRUE);
    EXPECT_EQ(as_string(back), long_text);
    EXPECT_EQ(back[src.size()], kGuard);
}

TEST(Conversions, NullPointersStopTheProcess) {
    char str[8];
    const kal_uint8 val[2] = {0, 0};
    EXPECT_DEATH(toUpper(nullptr), "str != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(rmmi_byte_order_reverse(nullptr, 2), "src != \\(\\(void \\*\\)0\\)");
    EXPECT_DEATH(print_hex_value(nullptr, str),
                 "\\(str != \\(\\(void \\*\\)0\\)\\) && \\(val != \\(\\(void \\*\\)0\\)\\)");
    EXPECT_DEATH(rmmi_value2string(nullptr, val, 1), "str != ");
}

} // namespace
