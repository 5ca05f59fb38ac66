#include "sncfg.h"

#include "test_support.h"

#include <cstdlib>

namespace {

class Store : public testing::Test {
  protected:
    void SetUp() override { setenv("SNCFG_FILE", path.c_str(), 1); }
    void TearDown() override { unsetenv("SNCFG_FILE"); }
    void write_store(const std::string &text) {
        FILE *file = fopen(path.c_str(), "w");
        ASSERT_NE(file, nullptr);
        fwrite(text.data(), 1, text.size(), file);
        fclose(file);
    }
    rmmi_test::TempDir dir;
    std::string path = dir.path + "/sncfg.conf";
};

struct Lookup {
    const char *key;
    int rc;
    const char *value; /* null: present without a value (when rc is 0) */
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
    const Lookup cases[] = {
        {"KERV_DEBUG", 0, "1"},
        {"KERV_EMPTY", 0, nullptr},
        {"KERV_LISTEN_PORT", 0, "6000"},
        {"KERV_CRLF", 0, "abc"},
        {"KERV_TEXT", 0, " a=b  c "},
        {"KERV_WAS_SET", 0, nullptr},
        {"KERV_TAIL", 0, "end"},
        {"KERV_HIDDEN", -1, nullptr},
        {"KERV_SPACED", -1, nullptr},
        {"KERV", -1, nullptr},
        {"KERV_LISTEN_PORT=5556", -1, nullptr},
        {"KERV_MISSING", -1, nullptr},
        {"", -1, nullptr},
    };
    for (const Lookup &c : cases) {
        char *value = reinterpret_cast<char *>(0x1);
        const int rc = sncfg_get(c.key, &value);
        EXPECT_EQ(rc < 0 ? -1 : rc, c.rc) << c.key;
        if (rc < 0)
            continue;
        if (c.value == nullptr)
            EXPECT_EQ(value, nullptr) << c.key;
        else
            EXPECT_STREQ(value, c.value) << c.key;
        free(value);
    }
    char *value = nullptr;
    EXPECT_LT(sncfg_get(nullptr, &value), 0);
    EXPECT_LT(sncfg_get("KERV_DEBUG", nullptr), 0);
}

TEST_F(Store, UnreadableStoreFailsEveryKeyAndEditsAreSeenAtOnce) {
    char *value = nullptr;
    EXPECT_LT(sncfg_get("KERV_DEBUG", &value), 0) << "no file yet";
    setenv("SNCFG_FILE", dir.path.c_str(), 1);
    EXPECT_LT(sncfg_get("KERV_DEBUG", &value), 0) << "a directory";
    setenv("SNCFG_FILE", path.c_str(), 1);

    write_store("KERV_DEBUG=3\n");
    ASSERT_EQ(sncfg_get("KERV_DEBUG", &value), 0);
    EXPECT_STREQ(value, "3");
    free(value);
    write_store("KERV_DEBUG=4\n");
    ASSERT_EQ(sncfg_get("KERV_DEBUG", &value), 0);
    EXPECT_STREQ(value, "4");
    free(value);
}

} // namespace
