#include "test_support.h"
#include "kerv_md_request.h"
#include "rmmi_common.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <string>
#include <vector>

namespace {

using rmmi_test::FakeModemd;
using rmmi_test::ModemReply;
using rmmi_test::ModemRequest;

/* The example plug-in as the daemon sees it: its exported group, loaded from the build. */
rmmi_validator_t *cgdcont_group() {
    static void *handle = dlopen(KERV_TEST_CGDCONT_PATH, RTLD_LAZY);
    return handle != nullptr ? static_cast<rmmi_validator_t *>(dlsym(handle, "rmmi_validators"))
                             : nullptr;
}

struct Answer {
    kal_bool result;
    std::string text;
    int length;
};

/* Runs the validator as the engine does: cursor past the name and mode characters. */
Answer run(const std::string &command, kal_uint8 mode, const char *test_mode = nullptr,
           int room = 1007) {
    std::string text = command;
    std::string ip_string = test_mode != nullptr ? test_mode : "";
    rmmi_string_struct cmd = {};
    cmd.string_ptr = reinterpret_cast<kal_uint8 *>(text.data());
    const size_t equals = text.find('=');
    cmd.index =
        static_cast<kal_uint16>(mode == RMMI_SET_OR_EXECUTE_MODE ? equals + 1 : text.size() - 1);
    cmd.ip_string =
        test_mode != nullptr ? reinterpret_cast<kal_uint8 *>(ip_string.data()) : nullptr;
    cmd.cmd_mode = mode;
    cmd.cmd_class = RMMI_EXTENDED_CMD;
    std::vector<char> out(1008, '\0');
    int out_len = room;
    const kal_bool result = cgdcont_group()->func(&cmd, out.data(), &out_len);
    return {result, out.data(), out_len};
}

/* The plug-in beside a stand-in modem daemon that answers OK unless told otherwise. */
class CgdcontPlugin : public ::testing::Test {
  protected:
    Answer set(const std::string &params) {
        return run("AT+CGDCONT=" + params + "\r", RMMI_SET_OR_EXECUTE_MODE);
    }
    std::string read_contexts() { return run("AT+CGDCONT?\r", RMMI_READ_MODE).text; }
    void remove_all_contexts() {
        for (int cid = 1; cid <= 15; ++cid)
            ASSERT_EQ(set(std::to_string(cid)).result, KAL_TRUE);
        modemd.take_requests();
    }

    FakeModemd modemd;
};

TEST_F(CgdcontPlugin, ExportsOneRecordWithItsNameHashesAndTestText) {
    rmmi_validator_t *group = cgdcont_group();
    ASSERT_NE(group, nullptr);
    EXPECT_STREQ(group[0].at_name, "+cgdcont");
    EXPECT_EQ(group[0].hash1, 6645417u);
    EXPECT_EQ(group[0].hash2, 552u);
    EXPECT_NE(group[0].func, nullptr);
    EXPECT_EQ(group[1].at_name, nullptr);
}

TEST_F(CgdcontPlugin, SetStoresContextsAndReadListsThemInCidOrder) {
    remove_all_contexts();
    EXPECT_EQ(read_contexts(), "\r\nOK\r\n");

    const Answer stored = set("3,\"ipv6\",\"ims\"");
    EXPECT_EQ(stored.result, KAL_TRUE);
    EXPECT_EQ(stored.text, "\r\nOK\r\n");
    EXPECT_EQ(stored.length, 6);
    EXPECT_EQ(set("1,\"IP\",\"internet\",\"10.0.0.1\",0,0").result, KAL_TRUE);
    EXPECT_EQ(set("15, \"IPV4V6\" ,,,2,4").result, KAL_TRUE);
    EXPECT_EQ(set("1,\"IP\",\"internet.example-1\"").result, KAL_TRUE); /* replaces cid 1 */

    const Answer listed = run("AT+CGDCONT?\r", RMMI_READ_MODE);
    EXPECT_EQ(listed.result, KAL_TRUE);
    EXPECT_EQ(listed.text, "\r\n+CGDCONT: 1,\"IP\",\"internet.example-1\"\r\n"
                           "+CGDCONT: 3,\"IPV6\",\"ims\"\r\n"
                           "+CGDCONT: 15,\"IPV4V6\",\"\"\r\n\r\nOK\r\n");
    EXPECT_EQ(listed.length, static_cast<int>(listed.text.size()));

    EXPECT_EQ(set("3").result, KAL_TRUE);
    /* A line ended by another termination character. */
    EXPECT_EQ(run("AT+CGDCONT=15\n", RMMI_SET_OR_EXECUTE_MODE).result, KAL_TRUE);
    EXPECT_EQ(read_contexts(), "\r\n+CGDCONT: 1,\"IP\",\"internet.example-1\"\r\n\r\nOK\r\n");
}

TEST_F(CgdcontPlugin, BadParametersAnswerErrorAndChangeNothing) {
    remove_all_contexts();
    ASSERT_EQ(set("2,\"IP\",\"keep\"").result, KAL_TRUE);
    const std::string before = read_contexts();
    modemd.take_requests();
    const char *bad[] = {
        "0,\"IP\",\"a\"",               /* cid below range */
        "16,\"IP\",\"a\"",              /* cid above range */
        "2a,\"IP\",\"a\"",              /* cid not a number */
        ",\"IP\",\"a\"",                /* cid omitted */
        "2,\"PPP\",\"a\"",              /* unknown PDP type */
        "2,IP,\"a\"",                   /* unquoted type */
        "2,\"\",\"a\"",                 /* empty type with an APN */
        "2,,\"a\"",                     /* omitted type with an APN */
        "2,\"IP\",\"two words\"",       /* APN character outside the name rule */
        "2,\"IP\",\"a\\22b\"",          /* escaped quote inside the APN */
        "2,\"IP\",\"a\",\"1.2.3.4\",3", /* d_comp above range */
        "2,\"IP\",\"a\",,0,5",          /* h_comp above range */
        "2,\"IP\",\"a\",,0,0,9",        /* one parameter too many */
        "2,\"IP\",",                    /* list ends in a separator */
        "2,\"IP\",\"a\"x",              /* text after the closing quote */
        "2,\"IP\",\"unterminated",      /* no closing quote */
    };
    for (const char *params : bad) {
        SCOPED_TRACE(params);
        const Answer got = set(params);
        EXPECT_EQ(got.result, KAL_FALSE);
        EXPECT_EQ(got.text, "\r\nERROR\r\n");
        EXPECT_EQ(got.length, 9);
        EXPECT_TRUE(modemd.take_requests().empty());
    }
    const std::string apn_99(99, 'a');
    EXPECT_EQ(set("4,\"IP\",\"" + apn_99 + "\"").result, KAL_TRUE);
    EXPECT_EQ(set("2,\"IP\",\"" + apn_99 + "b\"").result, KAL_FALSE);
    EXPECT_EQ(set("4").result, KAL_TRUE);
    EXPECT_EQ(read_contexts(), before);
}

TEST_F(CgdcontPlugin, ModemDaemonMustConfirmEveryChange) {
    remove_all_contexts();
    ASSERT_EQ(set("5,\"ipv4v6\",\"apn.five\"").result, KAL_TRUE);
    const std::vector<ModemRequest> creation = modemd.take_requests();
    ASSERT_EQ(creation.size(), 1u);
    EXPECT_EQ(creation[0].target, static_cast<kal_uint32>(MODEM_TARGET_DAEMON));
    EXPECT_EQ(creation[0].request_id, static_cast<kal_uint32>(MODEM_REQ_CREATE_APN));
    EXPECT_EQ(creation[0].data, "5,IPV4V6,apn.five");
    const std::string stored = read_contexts();
    const struct {
        ModemReply reply;
        const char *text;
    } refusals[] = {
        {ModemReply::text, ""}, {ModemReply::text, "\r\nOK\r\n"}, {ModemReply::short27, ""}};
    for (const auto &refusal : refusals) {
        modemd.answer(refusal.reply, refusal.text, MODEM_RET_CGDCONT_ERROR);
        const Answer refused = set("5,\"IP\",\"other\"");
        EXPECT_EQ(refused.result, KAL_FALSE);
        EXPECT_EQ(refused.text, "\r\nERROR\r\n");
        EXPECT_EQ(set("5").result, KAL_FALSE);
    }
    EXPECT_EQ(read_contexts(), stored);
    modemd.answer(ModemReply::text);
    modemd.take_requests();
    EXPECT_EQ(set("5").result, KAL_TRUE);
    const std::vector<ModemRequest> removal = modemd.take_requests();
    ASSERT_EQ(removal.size(), 1u);
    EXPECT_EQ(removal[0].request_id, static_cast<kal_uint32>(MODEM_REQ_DELETE_APN));
    EXPECT_EQ(removal[0].data, "5");
    /* Removing a context that is not there, or storing the same one again, asks nothing. */
    EXPECT_EQ(set("5").result, KAL_TRUE);
    EXPECT_EQ(set("6").result, KAL_TRUE);
    EXPECT_TRUE(modemd.take_requests().empty());
    EXPECT_EQ(read_contexts(), "\r\nOK\r\n");
    ASSERT_EQ(set("7,\"IP\",\"same\"").result, KAL_TRUE);
    modemd.take_requests();
    modemd.answer(ModemReply::text, "", MODEM_RET_CGDCONT_ERROR);
    EXPECT_EQ(set("7,\"ip\",\"same\",,0,0").result, KAL_TRUE);
    EXPECT_TRUE(modemd.take_requests().empty());
}

TEST_F(CgdcontPlugin, TestActiveAndWrongModes) {
    const char *test_text = cgdcont_group()[0].test_mode;
    const Answer tested = run("AT+CGDCONT=?\r", RMMI_TEST_MODE, test_text);
    EXPECT_EQ(tested.result, KAL_TRUE);
    EXPECT_EQ(tested.text, std::string("\r\n") + test_text + "\r\n\r\nOK\r\n");
    const std::string first_line = "\r\n+CGDCONT: (1-15),\"IP\",,,(0-2),(0-4)\r\n";
    EXPECT_EQ(tested.text.substr(0, first_line.size()), first_line);
    EXPECT_EQ(run("AT+CGDCONT=?\r", RMMI_TEST_MODE).text, "\r\nOK\r\n");

    const Answer active = run("AT+CGDCONT\r", RMMI_ACTIVE_MODE);
    EXPECT_EQ(active.result, KAL_TRUE);
    EXPECT_EQ(active.text, "\r\nOK\r\n");

    const Answer wrong = run("AT+CGDCONT?x\r", RMMI_WRONG_MODE);
    EXPECT_EQ(wrong.result, KAL_FALSE);
    EXPECT_EQ(wrong.text, "\r\nERROR\r\n");
}

TEST_F(CgdcontPlugin, AnswersThatDoNotFitAreRefusedNotCut) {
    remove_all_contexts();
    for (int cid = 1; cid <= 15; ++cid)
        ASSERT_EQ(set(std::to_string(cid) + ",\"IPV4V6\",\"" + std::string(99, 'x') + "\"").result,
                  KAL_TRUE);
    const Answer full = run("AT+CGDCONT?\r", RMMI_READ_MODE);
    EXPECT_EQ(full.result, KAL_FALSE);
    EXPECT_EQ(full.text, "\r\nERROR\r\n");
    remove_all_contexts();

    const Answer small = run("AT+CGDCONT=?\r", RMMI_TEST_MODE, cgdcont_group()[0].test_mode, 20);
    EXPECT_EQ(small.result, KAL_FALSE);
    EXPECT_EQ(small.text, "\r\nERROR\r\n");
}

} // namespace
