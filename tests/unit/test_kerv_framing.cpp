#include "line_framing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

/* What the framer handed on, in order; "!" stands for the over-long line's error. */
struct Handed {
    std::vector<std::string> items;
};

void take_line(void *ctx, const char *line, size_t line_len) {
    static_cast<Handed *>(ctx)->items.emplace_back(line, line_len);
}

void take_too_long(void *ctx) {
    static_cast<Handed *>(ctx)->items.emplace_back("!");
}

constexpr kerv_framing_sink_t kSink = {take_line, take_too_long};

/* Feeds each chunk as one read (split further when the room is smaller, as the server
   thread's reads would be) and returns what was handed on. */
std::vector<std::string> frame(const std::vector<std::string> &reads) {
    kerv_framing_t framing;
    kerv_framing_reset(&framing);
    Handed handed;
    for (const std::string &chunk : reads) {
        size_t pos = 0;
        while (pos < chunk.size()) {
            const size_t room = kerv_framing_room(&framing);
            EXPECT_GT(room, 0u);
            const size_t len = std::min(room, chunk.size() - pos);
            memcpy(framing.cmd_buf + framing.cmd_buf_offset, chunk.data() + pos, len);
            kerv_framing_feed(&framing, len, &kSink, &handed);
            pos += len;
        }
    }
    return handed.items;
}

struct FramingCase {
    const char *name;
    std::vector<std::string> reads;
    std::vector<std::string> expected;
};

TEST(Framing, TerminatorsSplitsAndBatchesHandOnEveryCompleteLineInOrder) {
    using namespace std::string_literals;
    const FramingCase cases[] = {
        {"cr", {"AT\r"}, {"AT"}},
        {"crlf", {"AT\r\n"}, {"AT"}},
        {"lf", {"AT\n"}, {"AT"}},
        {"nul ends a line", {"AT\0ATI\r"s}, {"AT", "ATI"}},
        {"split over two reads", {"AT", "+CSQ\r"}, {"AT+CSQ"}},
        {"two lines in one read", {"AT\rATI\r"}, {"AT", "ATI"}},
        {"three lines, mixed ends", {"A\r\nB\nC\r"}, {"A", "B", "C"}},
        {"bare cr is an empty line", {"\r"}, {""}},
        {"terminator run skipped", {"AT\r\r\n\nATI\r"}, {"AT", "ATI"}},
        {"unterminated tail waits", {"AT\rATI"}, {"AT"}},
        {"crlf split over reads", {"AT\r", "\n", "ATI\r"}, {"AT", "ATI"}},
        {"byte by byte", {"A", "T", "\r", "\n", "\r", "\n", "I", "\r"}, {"AT", "I"}},
        {"bare line end after a line's end", {"AT\r", "X", "\r", "\r"}, {"AT", "X"}},
    };
    for (const FramingCase &c : cases)
        EXPECT_EQ(frame(c.reads), c.expected) << c.name;
}

TEST(Framing, LineOf1022CharactersIsQueuedWhole1023IsRefusedOnce) {
    const std::string fits(1022, 'A');
    EXPECT_EQ(frame({fits + "\r"}), std::vector<std::string>{fits});

    const std::string too_long(1023, 'B');
    EXPECT_EQ(frame({too_long + "\rAT\r"}), (std::vector<std::string>{"!", "AT"}));
}

TEST(Framing, OverLongLineIsDiscardedUpToItsTerminatorAcrossManyReads) {
    /* 5000 bytes without a terminator: one error, nothing handed on until the line ends,
       then the next line framed from its first byte. */
    const std::string flood(5000, 'x');
    EXPECT_EQ(frame({flood, flood, "tail\r\nATI\r"}), (std::vector<std::string>{"!", "ATI"}));
    /* The terminator may arrive in a later read of its own. */
    EXPECT_EQ(frame({flood, "\n", "AT\r"}), (std::vector<std::string>{"!", "AT"}));
}

} // namespace
