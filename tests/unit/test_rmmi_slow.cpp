/* The modem daemon that never answers: the engine waits its full minute, then fails. */
#include "test_support.h"

namespace {

using rmmi_test::EngineTest;
using rmmi_test::FakeModemd;
using rmmi_test::ModemReply;

class SilentModem : public EngineTest {
  protected:
    FakeModemd modemd;
};

TEST_F(SilentModem, CommandFailsAfterTheWholeWaitAndTheLineIsClosed) {
    modemd.answer(ModemReply::silent);
    EXPECT_EQ(run("ATE0;+CSQ"), "\r\nOK\r\n\r\nERROR\r\n\r\nERROR\r\n");
    EXPECT_EQ(modemd.take_requests().size(), 1u) << "one request, never repeated";
    expect_line_flags_clear();
}

} // namespace
