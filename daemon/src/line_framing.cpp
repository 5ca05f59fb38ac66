#include "line_framing.h"

#include <cstring>

namespace {

constexpr int kFrameMax = KERV_FRAME_BUF_SIZE - 1;

/* Drops the held bytes before start and any CR or LF right after them. */
void drop_through(kerv_framing_t *framing, int start) {
    int next = start;
    while (next < framing->cmd_buf_offset &&
           (framing->cmd_buf[next] == '\r' || framing->cmd_buf[next] == '\n'))
        next++;
    framing->cmd_buf_offset -= next;
    memmove(framing->cmd_buf, framing->cmd_buf + next,
            static_cast<size_t>(framing->cmd_buf_offset));
    framing->cmd_buf[framing->cmd_buf_offset] = '\0';
    /* A line end of several bytes may be split over reads (a serial read often returns a
       single byte): what arrives next may still belong to it. */
    framing->after_line = framing->cmd_buf_offset == 0 ? KAL_TRUE : KAL_FALSE;
}

} // namespace

void kerv_framing_reset(kerv_framing_t *framing) {
    framing->cmd_buf_offset = 0;
    framing->cmd_buf[0] = '\0';
    framing->discarding = KAL_FALSE;
    framing->after_line = KAL_FALSE;
    framing->lines_held = KAL_FALSE;
}

size_t kerv_framing_room(const kerv_framing_t *framing) {
    return static_cast<size_t>(kFrameMax - framing->cmd_buf_offset);
}

void kerv_framing_feed(kerv_framing_t *framing, size_t read_len, const kerv_framing_sink_t *sink,
                       void *ctx) {
    framing->cmd_buf_offset += static_cast<int>(read_len);
    framing->cmd_buf[framing->cmd_buf_offset] = '\0';
    if (framing->after_line)
        drop_through(framing, 0);
    framing->lines_held = KAL_FALSE;
    for (;;) {
        /* The NUL after the held bytes bounds the search; a NUL from the host ends a line. */
        const int line_len = static_cast<int>(strcspn(framing->cmd_buf, "\r\n"));
        if (line_len < framing->cmd_buf_offset) {
            kal_bool more = KAL_TRUE;
            if (framing->discarding)
                framing->discarding = KAL_FALSE;
            else
                more = sink->line(ctx, framing->cmd_buf, static_cast<size_t>(line_len));
            drop_through(framing, line_len + 1);
            if (!more) {
                framing->lines_held = framing->cmd_buf_offset > 0 ? KAL_TRUE : KAL_FALSE;
                return;
            }
            continue;
        }
        if (framing->cmd_buf_offset == kFrameMax && !framing->discarding) {
            sink->too_long(ctx);
            framing->discarding = KAL_TRUE;
        }
        if (framing->discarding) {
            /* Nothing of an over-long line is kept: only its end is looked for. */
            framing->cmd_buf_offset = 0;
            framing->cmd_buf[0] = '\0';
        }
        return;
    }
}

void kerv_framing_feed_raw(kerv_framing_t *framing, size_t read_len,
                           size_t (*take)(void *ctx, const char *bytes, size_t len), void *ctx) {
    framing->cmd_buf_offset += static_cast<int>(read_len);
    const size_t taken = take(ctx, framing->cmd_buf, static_cast<size_t>(framing->cmd_buf_offset));
    framing->cmd_buf_offset -= static_cast<int>(taken);
    memmove(framing->cmd_buf, framing->cmd_buf + taken,
            static_cast<size_t>(framing->cmd_buf_offset));
    framing->cmd_buf[framing->cmd_buf_offset] = '\0';
    /* The text's bytes were no line end of the line before it. */
    framing->after_line = KAL_FALSE;
    framing->lines_held = framing->cmd_buf_offset > 0 ? KAL_TRUE : KAL_FALSE;
}
