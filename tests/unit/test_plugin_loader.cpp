#include "plugin_loader.h"
#include "validator_registry.h"

#include "test_support.h"

#include <climits>
#include <fstream>

namespace {

namespace fs = std::filesystem;

kal_bool validator(rmmi_string_struct *, char *, int *) {
    return KAL_TRUE;
}

rmmi_validator_t v(const char *name, RMMI_EXT_CMD_FUNCTION func = validator) {
    return {const_cast<char *>(name), 0, 0, nullptr, func};
}
const rmmi_validator_t kEnd = {};

rmmi_validator_t group_a[] = {v("+cgdcont"), v("+alpha"), v("+dup"), v("+dup"), kEnd};
rmmi_validator_t group_b[] = {v("+cgdcont"), v("+CSQ"), v("+nofunc", nullptr), v("+beta"), kEnd};
rmmi_validator_t group_c[] = {v("+gamma"), kEnd};
rmmi_validator_t group_null_name[] = {v(nullptr), v("+hidden")};

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

TEST(Registry, LaterRecordWinsKeysAreExactAndOnlyTwoGroupsCount) {
    build_registry({group_a, group_b});
    const struct {
        const char *name;
        rmmi_validator_t *record;
    } cases[] = {
        {"+cgdcont", &group_b[0]}, {"+alpha", &group_a[1]}, {"+dup", &group_a[3]},
        {"+csq", nullptr},         {"+CSQ", &group_b[1]},   {"+cgdcon", nullptr},
        {"+cgdcontx", nullptr},    {"+nofunc", nullptr},    {"+beta", &group_b[3]},
    };
    for (const auto &c : cases)
        EXPECT_EQ(lookup(c.name), c.record) << c.name;

    build_registry({group_a, nullptr, group_b, group_c});
    EXPECT_EQ(lookup("+beta"), &group_b[3]);
    EXPECT_EQ(lookup("+gamma"), nullptr);
    build_registry({group_null_name, group_c, group_a});
    EXPECT_EQ(lookup("+hidden"), nullptr);
    EXPECT_EQ(lookup("+gamma"), &group_c[0]);
    EXPECT_EQ(lookup("+alpha"), nullptr) << "a group with no records still takes a slot";
}

/* A plug-in directory of its own, filled with copies of the test plug-ins. */
class Loader : public testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(getcwd(saved_cwd, sizeof(saved_cwd)), nullptr); }
    void TearDown() override { EXPECT_EQ(chdir(saved_cwd), 0); }
    void add_plugin(const char *built_name, const std::string &entry_name) {
        fs::copy_file(fs::path(KERV_TEST_PLUGINS_DIR) / built_name,
                      fs::path(dir.path) / entry_name);
    }
    rmmi_test::TempDir dir;
    rmmi_test::ScopedSetting plugin_dir{"KERVD_PLUGIN_DIR", dir.path.c_str()};
    char saved_cwd[PATH_MAX];
};

TEST_F(Loader, LibrariesAreOpenedByTheNameBetweenPrefixAndSoAndOthersRefusedSafely) {
    add_plugin("libalpha.so", "libalpha.so");
    add_plugin("libbeta.so", "libbeta.so.2"); /* opened as libbeta.so, which is missing */
    add_plugin("libnosym.so", "libnosym.so");
    for (const std::string &name :
         {std::string("ab.so"), std::string(".so"), "lib" + std::string(240, 'g') + ".so"})
        add_plugin("libgamma.so", name);
    std::ofstream(fs::path(dir.path) / "README") << "x";
    EXPECT_EQ(config_libdir(), KAL_TRUE);
    ASSERT_NE(lookup("+alpha"), nullptr);
    EXPECT_STREQ(lookup("+alpha")->test_mode, "(0-1)");
    for (const char *name : {"+beta", "+nosym", "+gamma"})
        EXPECT_EQ(lookup(name), nullptr) << name;
}

TEST_F(Loader, DirectoryThatCannotBeOpenedLeavesNoTable) {
    add_plugin("libalpha.so", "libalpha.so");
    ASSERT_EQ(config_libdir(), KAL_TRUE);
    ASSERT_NE(lookup("+alpha"), nullptr);
    {
        rmmi_test::NoFreeDescriptors exhausted; /* binds root as well as anyone */
        EXPECT_EQ(config_libdir(), KAL_FALSE);
    }
    EXPECT_EQ(lookup("+alpha"), nullptr);
    setenv("KERVD_PLUGIN_DIR", (dir.path + "/missing").c_str(), 1);
    EXPECT_EQ(config_libdir(), KAL_FALSE);
    /* Empty is unset: not the working directory, however many plug-ins lie there. */
    ASSERT_EQ(chdir(dir.path.c_str()), 0);
    setenv("KERVD_PLUGIN_DIR", "", 1);
    config_libdir();
    EXPECT_EQ(lookup("+alpha"), nullptr);
}

} // namespace
