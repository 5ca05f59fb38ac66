#include "line_framing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;
using lines = std::vector<std::string>;

/* What the framer handed on, in order; "!" stands for the over-long line's error. */
kal_bool take_line(void *ctx, const char *line, size_t line_len) {
    static_cast<lines *>(ctx)->emplace_back(line, line_len);
    return KAL_TRUE;
}
void take_too_long(void *ctx) {
    static_cast<lines *>(ctx)->emplace_back("!");
}
constexpr kerv_framing_sink_t kSink = {take_line, take_too_long};

/* Feeds each chunk as one read (split further when the room is smaller, as the server
   thread's reads would be) and returns what was handed on. */
lines frame(const lines &reads) {
    kerv_framing_t framing;
    kerv_framing_reset(&framing);
    lines handed;
    for (const std::string &chunk : reads) {
        for (size_t pos = 0; pos < chunk.size();) {
            const size_t room = kerv_framing_room(&framing);
            if (room == 0)
                return {"<no room left>"};
            const size_t len = std::min(room, chunk.size() - pos);
            memcpy(framing.cmd_buf + framing.cmd_buf_offset, chunk.data() + pos, len);
            kerv_framing_feed(&framing, len, &kSink, &handed);
            pos += len;
        }
    }
    return handed;
}

TEST(Framing, ReadsBecomeLinesInOrder) {
    const std::string fits(1022, 'A'), too_long(1023, 'B'), flood(5000, 'x');
    const struct {
        const char *name;
        lines reads;
        lines expected;
    } cases[] = {
        {"nul ends a line", {"AT\0ATI\r"s}, {"AT", "ATI"}},
        {"three lines in one read, mixed ends", {"A\r\nB\nC\r"}, {"A", "B", "C"}},
        {"bare cr is an empty line", {"\r"}, {""}},
        {"terminator run skipped", {"AT\r\r\n\nATI\r"}, {"AT", "ATI"}},
        {"unterminated tail waits", {"AT\rATI"}, {"AT"}},
        {"crlf split over reads", {"AT\r", "\n", "ATI\r"}, {"AT", "ATI"}},
        {"byte by byte", {"A", "T", "\r", "\n", "\r", "\n", "I", "\r"}, {"AT", "I"}},
        {"longest line fits", {fits + "\r"}, {fits}},
        {"one byte more: one error", {too_long + "\rAT\r"}, {"!", "AT"}},
        {"flood discarded up to its end", {flood, flood, "tail\r\nATI\r"}, {"!", "ATI"}},
        {"flood ended in a later read", {flood, "\n", "AT\r"}, {"!", "AT"}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(frame(c.reads), c.expected) << c.name;
}

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
                                            take_too_long};
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
