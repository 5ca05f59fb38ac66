/* The framing's bound; how reads become lines is in framing.t. */
#include "line_framing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using lines = std::vector<std::string>;

/* A sink that takes two lines, like a queue with room for two: the rest of the read waits
   in the buffer, whole, and comes out on the next turn without a new read. */
TEST(Framing, StopsAtTheSinksBoundAndKeepsTheRest) {
    struct turn {
        lines taken;
        int room;
    } sink_state = {{}, 2};
    const kerv_framing_sink_t two_a_turn = {[](void *ctx, const char *line, size_t line_len) {
                                                auto *state = static_cast<turn *>(ctx);
                                                state->taken.emplace_back(line, line_len);
                                                return --state->room > 0 ? KAL_TRUE : KAL_FALSE;
                                            },
                                            [](void *) {}};
    kerv_framing_t framing;
    kerv_framing_reset(&framing);
    const std::string read = "A\rB\r\nC\rD\rE";
    memcpy(framing.cmd_buf, read.data(), read.size());
    kerv_framing_feed(&framing, read.size(), &two_a_turn, &sink_state);
    EXPECT_EQ(sink_state.taken, (lines{"A", "B"}));
    EXPECT_TRUE(framing.lines_held);
    sink_state.room = 3;
    kerv_framing_feed(&framing, 0, &two_a_turn, &sink_state);
    EXPECT_EQ(sink_state.taken, (lines{"A", "B", "C", "D"}));
    EXPECT_FALSE(framing.lines_held) << "only the unterminated E is left";
    EXPECT_EQ(std::string(framing.cmd_buf, framing.cmd_buf_offset), "E");
}

} // namespace
