#include "kerv_settings.h"
#include "sncfg.h"

#include "test_support.h"

#include <cstdlib>
#include <fstream>

namespace {

class Store : public testing::Test {
  protected:
    void write_store(const std::string &text) { std::ofstream(path, std::ios::binary) << text; }
    /* The value of key, "<none>" when present without one, "<fail>" when the lookup fails. */
    static std::string get(const char *key) {
        char *value = reinterpret_cast<char *>(0x1);
        if (sncfg_get(key, &value) < 0)
            return "<fail>";
        const std::string text = value != nullptr ? value : "<none>";
        free(value);
        return text;
    }
    rmmi_test::TempDir dir;
    std::string path = dir.file("sncfg.conf");
    rmmi_test::ScopedSetting store{"SNCFG_FILE", path.c_str()};
};

TEST_F(Store, FileFormatRules) {
    write_store("# KERV_DEBUG=9\n"
                "KERV_DEBUG=1\n"
                "\n"
                "KERV_EMPTY=\n"
                "KERV_LISTEN_PORT=5556\n"
                "KERV_LISTEN_PORT=6000\n"
                "KERV_CRLF=abc\r\n"
                "KERV_TEXT= a=b  c \n"
                "#KERV_HIDDEN=1\n"
                " KERV_SPACED=1\n"
                "KERV_WAS_SET=1\n"
                "KERV_WAS_SET=\n"
                "KERV_TAIL=end");
    const std::pair<const char *, const char *> cases[] = {
        {"KERV_DEBUG", "1"},          {"KERV_EMPTY", "<none>"},
        {"KERV_LISTEN_PORT", "6000"}, {"KERV_CRLF", "abc"},
        {"KERV_TEXT", " a=b  c "},    {"KERV_WAS_SET", "<none>"},
        {"KERV_TAIL", "end"},         {"KERV_HIDDEN", "<fail>"},
        {"#KERV_HIDDEN", "<fail>"},   {"KERV_SPACED", "<fail>"},
        {"KERV", "<fail>"},           {"KERV_LISTEN_PORT=5556", "<fail>"},
        {"KERV_MISSING", "<fail>"},   {"", "<fail>"},
    };
    for (const auto &[key, value] : cases)
        EXPECT_EQ(get(key), value) << key;
}

TEST_F(Store, MissingOrUnreadableStoreFailsUntilItIsWritten) {
    EXPECT_EQ(get("KERV_DEBUG"), "<fail>") << "no file yet";
    setenv("SNCFG_FILE", dir.path.c_str(), 1);
    EXPECT_EQ(get("KERV_DEBUG"), "<fail>") << "a directory";
    setenv("SNCFG_FILE", path.c_str(), 1);
    write_store("KERV_DEBUG=4\n");
    EXPECT_EQ(get("KERV_DEBUG"), "4");
}

/* One rule for every development setting: unset or empty keeps the board's value, and a
   number must be a whole decimal from 1 to its maximum. */
TEST(Settings, EmptyOrBadValuesKeepTheBoardsValue) {
    const struct {
        const char *value; /* null: unset */
        unsigned long number;
        const char *path;
    } cases[] = {
        {nullptr, 7, "/board"}, {"", 7, "/board"}, {"12", 12, "12"},  {"0", 7, "0"},
        {"100", 100, "100"},    {"101", 7, "101"}, {"-1", 7, "-1"},   {"12x", 7, "12x"},
        {" 12", 7, " 12"},      {"+12", 7, "+12"}, {"abc", 7, "abc"},
    };
    for (const auto &c : cases) {
        if (c.value == nullptr)
            unsetenv("KERV_TEST_SETTING");
        else
            setenv("KERV_TEST_SETTING", c.value, 1);
        EXPECT_EQ(kerv_env_number("KERV_TEST_SETTING", 7, 100), c.number) << c.value;
        EXPECT_STREQ(kerv_env_path("KERV_TEST_SETTING", "/board"), c.path) << c.value;
    }
    unsetenv("KERV_TEST_SETTING");
}

TEST_F(Store, NumbersReadAsTheDaemonAndKervctlReadThem) {
    write_store("KERV_A=42\nKERV_B=\nKERV_C=text\n");
    const struct {
        const char *key;
        kerv_cfg_e found;
        unsigned long value;
    } cases[] = {{"KERV_A", KERV_CFG_SET, 42},
                 {"KERV_B", KERV_CFG_EMPTY, 99},
                 {"KERV_C", KERV_CFG_SET, 0},
                 {"KERV_D", KERV_CFG_MISSING, 99}};
    for (const auto &c : cases) {
        unsigned long value = 99;
        EXPECT_EQ(kerv_store_number(sncfg_get, c.key, &value), c.found) << c.key;
        EXPECT_EQ(value, c.value) << c.key;
    }
}

} // namespace
