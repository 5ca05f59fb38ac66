/* The example +CGDCONT plug-in, loaded from its build folder, answering through the engine. */
#include "plugin_loader.h"
#include "validator_registry.h"

#include "test_support.h"

#include <libgen.h>

namespace {

using rmmi_test::EngineTest;
using rmmi_test::FakeModemd;

class ExamplePlugin : public EngineTest {
  protected:
    void SetUp() override {
#ifndef KERV_TEST_CGDCONT_PATH
        GTEST_SKIP() << "the example plug-in is not part of this build";
#else
        EngineTest::SetUp();
        static bool loaded = false;
        if (!loaded) {
            std::string path = KERV_TEST_CGDCONT_PATH;
            setenv("KERVD_PLUGIN_DIR", dirname(path.data()), 1);
            ASSERT_EQ(config_libdir(), KAL_TRUE);
            loaded = true;
        }
#endif
    }
    FakeModemd modemd;
};

TEST_F(ExamplePlugin, DefinesListsAndDescribesContextsThroughTheModemDaemon) {
    EXPECT_EQ(run("AT+CGDCONT=1,\"IP\",\"internet.example\""),
              "AT+CGDCONT=1,\"IP\",\"internet.example\"\r\r\nOK\r\n");
    EXPECT_EQ(run("ATE0;+CGDCONT=2,\"IPV6\",\"ims\""), "\r\nOK\r\n\r\nOK\r\n\r\nOK\r\n");
    EXPECT_EQ(run("AT+cgdcont?"),
              "\r\n+CGDCONT: 1,\"IP\",\"internet.example\"\r\n+CGDCONT: 2,\"IPV6\",\"ims\"\r\n"
              "\r\nOK\r\n");
    const std::string test_answer = run("AT+CGDCONT=?");
    EXPECT_EQ(test_answer.rfind("\r\n+CGDCONT: (1-15),\"IP\"", 0), 0u) << test_answer;
    EXPECT_EQ(test_answer.substr(test_answer.size() - 6), "\r\nOK\r\n");
    const std::vector<rmmi_test::ModemRequest> requests = modemd.take_requests();
    ASSERT_EQ(requests.size(), 2u) << "only definitions reach the modem daemon";
    EXPECT_EQ(requests[0].request_id, 7u);
    EXPECT_EQ(requests[0].target, 0u);
    EXPECT_EQ(requests[0].data, "1,IP,internet.example");
    EXPECT_EQ(requests[1].data, "2,IPV6,ims");
}

} // namespace
