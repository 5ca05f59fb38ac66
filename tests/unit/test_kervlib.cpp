#include "plugin_loader.h"
#include "validator_registry.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

kal_bool validator_a(rmmi_string_struct *, char *, int *) {
    return KAL_TRUE;
}
kal_bool validator_b(rmmi_string_struct *, char *, int *) {
    return KAL_FALSE;
}

rmmi_validator_t group_a[] = {{(char *)"+cgdcont", 6645417, 552, nullptr, validator_a},
                              {(char *)"+alpha", 0, 0, nullptr, validator_a},
                              {(char *)"+dup", 0, 0, nullptr, validator_a},
                              {(char *)"+dup", 0, 0, (char *)"later", validator_a},
                              {nullptr, 0, 0, nullptr, nullptr}};
rmmi_validator_t group_b[] = {{(char *)"+cgdcont", 6645417, 552, nullptr, validator_b},
                              {(char *)"+CSQ", 5071, 0, nullptr, validator_b},
                              {(char *)"+nofunc", 0, 0, nullptr, nullptr},
                              {(char *)"+beta", 0, 0, nullptr, validator_b},
                              {nullptr, 0, 0, nullptr, nullptr}};
rmmi_validator_t group_c[] = {{(char *)"+gamma", 0, 0, nullptr, validator_a},
                              {nullptr, 0, 0, nullptr, nullptr}};
rmmi_validator_t group_null_name[] = {{nullptr, 0, 0, nullptr, validator_a},
                                      {(char *)"+hidden", 0, 0, nullptr, validator_a}};

rmmi_validator_t *lookup(const char *name) {
    rmmi_validator_t *record = nullptr;
    std::string key = name;
    return get_validator(key.data(), &record) == KAL_TRUE ? record : nullptr;
}

void build_registry(std::initializer_list<rmmi_validator_t *> groups) {
    init_validator_group();
    for (rmmi_validator_t *group : groups)
        set_validator_group(group);
    init_validators();
}

/* Every test starts with messages of every level shown and its cwd restored after. */
class Registry : public ::testing::Test {
  protected:
    void SetUp() override {
        g_dbg_print = KAL_DBG_FUNCTION;
        ASSERT_NE(getcwd(saved_cwd, sizeof(saved_cwd)), nullptr);
    }
    void TearDown() override {
        EXPECT_EQ(chdir(saved_cwd), 0);
        g_dbg_print = 0;
    }
    char saved_cwd[PATH_MAX];
};

TEST_F(Registry, LaterGroupAndRecordWinKeysAreExactAndRecordsWithoutFunctionAreRefused) {
    testing::internal::CaptureStdout();
    build_registry({group_a, group_b});
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(lookup("+cgdcont"), &group_b[0]);
    EXPECT_EQ(lookup("+alpha"), &group_a[1]);
    EXPECT_EQ(lookup("+beta"), &group_b[3]);
    EXPECT_EQ(lookup("+dup"), &group_a[3]);
    /* Classification looks names up in lower case: an upper-case record is never found. */
    EXPECT_EQ(lookup("+csq"), nullptr);
    EXPECT_EQ(lookup("+CSQ"), &group_b[1]);
    EXPECT_EQ(lookup("+cgdcon"), nullptr);
    EXPECT_EQ(lookup("+cgdcontx"), nullptr);
    EXPECT_EQ(lookup("+nofunc"), nullptr);
    EXPECT_NE(output.find("validator [+nofunc] has no function, not registered\r\n"),
              std::string::npos);
    EXPECT_NE(output.find("count=[8]\r\n"), std::string::npos);
}

TEST_F(Registry, OnlyTwoGroupsAreKeptAndANullNameGroupTakesASlot) {
    build_registry({group_a, group_b, group_c});
    EXPECT_EQ(lookup("+gamma"), nullptr);
    EXPECT_EQ(lookup("+beta"), &group_b[3]);

    build_registry({group_null_name, group_c, group_a});
    EXPECT_EQ(lookup("+hidden"), nullptr);
    EXPECT_EQ(lookup("+gamma"), &group_c[0]);
    EXPECT_EQ(lookup("+alpha"), nullptr);

    build_registry({nullptr, group_c});
    EXPECT_EQ(lookup("+gamma"), &group_c[0]);
}

TEST_F(Registry, WithoutATableLookupsAndEntriesFailWithAWarning) {
    setenv("KERVD_PLUGIN_DIR", "/nonexistent/kerv-plugins", 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(config_libdir(), KAL_FALSE);
    EXPECT_EQ(lookup("+cgdcont"), nullptr);
    std::string name = "+x";
    EXPECT_EQ(set_validator(name.data(), group_a), KAL_FALSE);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_NE(output.find("plugin directory is not exist (/nonexistent/kerv-plugins)\r\n"),
              std::string::npos);
    EXPECT_NE(output.find("> validator table is not exist!!!\r\n"), std::string::npos);
    EXPECT_NE(output.find(">table is not exist!!!!!\r\n"), std::string::npos);
}

/* A plug-in directory of its own, filled with copies of the test plug-ins. */
class Loader : public Registry {
  protected:
    void SetUp() override {
        Registry::SetUp();
        char pattern[] = "/tmp/kerv-plugins-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        setenv("KERVD_PLUGIN_DIR", dir.c_str(), 1);
    }
    void TearDown() override {
        Registry::TearDown();
        fs::remove_all(dir);
    }
    void add_plugin(const char *built_name, const std::string &entry_name) {
        fs::copy_file(fs::path(KERV_TEST_PLUGINS_DIR) / built_name, fs::path(dir) / entry_name);
    }
    void add_file(const std::string &entry_name) {
        std::ofstream(fs::path(dir) / entry_name) << "x";
    }
    std::string load() {
        testing::internal::CaptureStdout();
        loaded = config_libdir();
        return testing::internal::GetCapturedStdout();
    }
    static bool has(const std::string &output, const std::string &text) {
        return output.find(text) != std::string::npos;
    }
    std::string dir;
    kal_bool loaded = KAL_FALSE;
};

TEST_F(Loader, EmptyDirectoryBuildsAnEmptyTableWithoutWarnings) {
    const std::string output = load();
    EXPECT_EQ(loaded, KAL_TRUE);
    testing::internal::CaptureStdout();
    EXPECT_EQ(lookup("+cgdcont"), nullptr);
    const std::string lookup_output = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(has(lookup_output, "not exist"));
    EXPECT_TRUE(has(output, "count=[0]\r\n"));
    EXPECT_TRUE(has(output, "> ENTER\r\n"));
    EXPECT_TRUE(has(output, "> EXIT\r\n"));
}

TEST_F(Loader, OnlySoEntriesAreOpenedByTheNameBetweenPrefixAndSo) {
    add_plugin("libalpha.so", "libalpha.so");
    add_plugin("libbeta.so", "libfoo.so.2"); /* opened as libfoo.so, which is missing */
    add_file("README");
    const std::string output = load();
    EXPECT_EQ(loaded, KAL_TRUE);
    ASSERT_NE(lookup("+alpha"), nullptr);
    EXPECT_STREQ(lookup("+alpha")->test_mode, "(0-1)");
    EXPECT_EQ(lookup("+beta"), nullptr);
    EXPECT_TRUE(has(output, "KERV Plug-in = " + dir + "/libalpha.so\n\r\n"));
    EXPECT_TRUE(has(output, "KERV Plug-in = " + dir + "/libfoo.so\n\r\n"));
    EXPECT_TRUE(has(output, "KERVLIB[" + dir + "/libfoo.so]:can't load library!!\n\r\n"));
    EXPECT_FALSE(has(output, "README"));
    EXPECT_TRUE(has(output, "set validator grup. First AT command is [+cgdcont]\r\n"));
}

TEST_F(Loader, LibraryWithoutValidatorsIsReportedAndContributesNothing) {
    add_plugin("libnosym.so", "libnosym.so");
    add_plugin("libnullfunc.so", "libnullfunc.so");
    const std::string output = load();
    EXPECT_EQ(loaded, KAL_TRUE);
    EXPECT_TRUE(
        has(output, "KERVLIB[" + dir + "/libnosym.so]:get rmmi_validators symbol error !!\n\r\n"));
    EXPECT_EQ(lookup("+nosym"), nullptr);
    EXPECT_EQ(lookup("+nofunc"), nullptr);
    EXPECT_NE(lookup("+good"), nullptr);
}

TEST_F(Loader, ThreePluginsAreAllOpenedButOnlyTwoGroupsRegistered) {
    add_plugin("libalpha.so", "libalpha.so");
    add_plugin("libbeta.so", "libbeta.so");
    add_plugin("libgamma.so", "libgamma.so");
    const std::string output = load();
    int opened = 0;
    for (size_t at = output.find("KERV Plug-in = "); at != std::string::npos;
         at = output.find("KERV Plug-in = ", at + 1))
        ++opened;
    EXPECT_EQ(opened, 3);
    int registered = 0;
    for (const char *name : {"+alpha", "+beta", "+gamma"})
        registered += lookup(name) != nullptr;
    EXPECT_EQ(registered, 2);
}

TEST_F(Loader, NamesWithoutRoomAreRefusedSafely) {
    add_plugin("libalpha.so", "ab.so");
    add_plugin("libbeta.so", ".so");
    add_plugin("libgamma.so", "lib" + std::string(240, 'g') + ".so");
    const std::string output = load();
    EXPECT_EQ(loaded, KAL_TRUE);
    EXPECT_TRUE(has(output, "skip [ab.so]: no library name before .so\r\n"));
    EXPECT_TRUE(has(output, "skip [.so]: no library name before .so\r\n"));
    EXPECT_TRUE(has(output, "/lib" + std::string(240, 'g') +
                                ".so]:path longer than 255 bytes, not loaded\r\n"));
    EXPECT_FALSE(has(output, "KERV Plug-in = "));
    EXPECT_EQ(lookup("+gamma"), nullptr);
}

TEST_F(Loader, RelativeDirectoryIsNamedAndOpenedFromWhereTheDaemonStarted) {
    add_plugin("libgamma.so", "libgamma.so");
    ASSERT_EQ(chdir(fs::path(dir).parent_path().c_str()), 0);
    setenv("KERVD_PLUGIN_DIR", fs::path(dir).filename().c_str(), 1);
    const std::string output = load();
    EXPECT_EQ(loaded, KAL_TRUE);
    EXPECT_TRUE(has(output, "KERV Plug-in = " + dir + "/libgamma.so\n\r\n"));
    EXPECT_NE(lookup("+gamma"), nullptr);
}

TEST_F(Loader, DefaultDirectoryIsUsedWhenNoneIsSet) {
    unsetenv("KERVD_PLUGIN_DIR");
    if (fs::exists("/lib/kerv_plugin"))
        GTEST_SKIP() << "a plug-in directory is installed on this machine";
    const std::string output = load();
    EXPECT_EQ(loaded, KAL_FALSE);
    EXPECT_TRUE(has(output, "plugin directory is not exist (/lib/kerv_plugin)\r\n"));
}

TEST_F(Loader, UnreadableDirectoryIsReported) {
    if (geteuid() == 0)
        GTEST_SKIP() << "directory permissions do not bind root";
    fs::permissions(dir, fs::perms::owner_exec);
    const std::string output = load();
    fs::permissions(dir, fs::perms::owner_all);
    EXPECT_EQ(loaded, KAL_FALSE);
    EXPECT_TRUE(has(output, "mini_httpd:opendir() failed: " + dir + "\n\r\n"));
    EXPECT_EQ(lookup("+alpha"), nullptr);
}

} // namespace
