/*
 * A host's byte stream, cut into reads of varying sizes, through the line framer. What
 * the framer hands on must be exactly what a byte-at-a-time reading of the whole stream
 * gives, whatever the cut: lines without terminators and never longer than 1022 bytes,
 * one error for each over-long line, nothing for the line still open at the end.
 *
 * Input: two bytes that seed the read sizes, then the stream.
 */
#include "line_framing.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr size_t kLongestLine = KERV_FRAME_BUF_SIZE - 2;
constexpr char kTooLong[] = "\x01too long";

/* What the framer handed on, in order; an over-long line shows as kTooLong. */
struct Handed {
    std::vector<std::string> items;
};

kal_bool take_line(void *ctx, const char *line, size_t line_len) {
    if (line_len > kLongestLine || strcspn(line, "\r\n") != line_len)
        abort();
    static_cast<Handed *>(ctx)->items.emplace_back(line, line_len);
    return KAL_TRUE;
}

void take_too_long(void *ctx) {
    static_cast<Handed *>(ctx)->items.emplace_back(kTooLong);
}

constexpr kerv_framing_sink_t kSink = {take_line, take_too_long};

bool is_terminator(char c) {
    return c == '\r' || c == '\n' || c == '\0';
}

/*
 * The framing rules one byte at a time: a line ends at CR, LF or NUL; CR and LF right
 * after a terminator belong to it; the 1023rd byte of a line makes it too long.
 */
std::vector<std::string> expected_items(const uint8_t *stream, size_t size) {
    std::vector<std::string> items;
    std::string line;
    bool after_terminator = false;
    for (size_t i = 0; i < size; ++i) {
        const char c = static_cast<char>(stream[i]);
        if (after_terminator && (c == '\r' || c == '\n'))
            continue;
        after_terminator = false;
        if (is_terminator(c)) {
            if (line.size() <= kLongestLine)
                items.push_back(line);
            line.clear();
            after_terminator = true;
        } else if (line.size() <= kLongestLine) {
            line.push_back(c);
            if (line.size() > kLongestLine)
                items.emplace_back(kTooLong);
        }
    }
    return items;
}

/* Read sizes: short ones, single bytes, and reads that fill all the room there is. */
size_t next_read_size(uint32_t *seed, size_t room) {
    *seed ^= *seed << 13;
    *seed ^= *seed >> 17;
    *seed ^= *seed << 5;
    const size_t caps[] = {1, 3, 16, 200};
    const size_t pick = *seed % 5;
    if (pick == 4)
        return room;
    return 1 + (*seed >> 8) % (caps[pick] < room ? caps[pick] : room);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2)
        return 0;
    uint32_t seed = (static_cast<uint32_t>(data[0]) << 8 | data[1]) + 1;
    const uint8_t *stream = data + 2;
    const size_t stream_len = size - 2;

    kerv_framing_t framing;
    kerv_framing_reset(&framing);
    Handed handed;
    for (size_t pos = 0; pos < stream_len;) {
        const size_t room = kerv_framing_room(&framing);
        if (room == 0 || room > kLongestLine + 1)
            abort();
        size_t len = next_read_size(&seed, room);
        if (len > stream_len - pos)
            len = stream_len - pos;
        memcpy(framing.cmd_buf + framing.cmd_buf_offset, stream + pos, len);
        kerv_framing_feed(&framing, len, &kSink, &handed);
        if (framing.cmd_buf_offset < 0 || framing.cmd_buf_offset > static_cast<int>(kLongestLine) ||
            framing.cmd_buf[framing.cmd_buf_offset] != '\0')
            abort();
        pos += len;
    }
    if (handed.items != expected_items(stream, stream_len))
        abort();
    return 0;
}
