/*
 * Line framing of one host's bytes, fed read by read by the channel server thread.
 */
#ifndef KERV_LINE_FRAMING_H
#define KERV_LINE_FRAMING_H

#include "kal_common.h"

#include <cstddef>

/*
 * A line ends at a carriage return, a line feed or a NUL; further CR and LF right after
 * the terminator are skipped, also when they arrive in a later read. A line that fills the buffer
 * without a terminator is too long: it is answered with one error and its bytes are
 * discarded up to its terminator.
 *
 * The sink may refuse further lines (the queue holds as many of the host's lines as it
 * takes): framing then stops after the line just handed on, and the lines still complete
 * in the buffer wait there (lines_held) until kerv_framing_feed is called again.
 */
enum { KERV_FRAME_BUF_SIZE = 1024 };

typedef struct {
    char cmd_buf[KERV_FRAME_BUF_SIZE]; /* held bytes, NUL after them */
    int cmd_buf_offset;                /* number of held bytes, at most 1023 */
    kal_bool discarding;               /* inside an over-long line, waiting for its end */
    kal_bool after_line;               /* the held bytes ended with a line end */
    kal_bool lines_held;               /* stopped by the sink: held bytes may hold lines */
} kerv_framing_t;

/* What the framer hands on: a complete line (line says whether it takes another one), or
   the error for an over-long one. */
typedef struct {
    kal_bool (*line)(void *ctx, const char *line, size_t line_len);
    void (*too_long)(void *ctx);
} kerv_framing_sink_t;

void kerv_framing_reset(kerv_framing_t *framing);
/* Room for the next read, at cmd_buf + cmd_buf_offset; never 0 unless lines_held. */
size_t kerv_framing_room(const kerv_framing_t *framing);
/* Takes in read_len bytes just read into the room (0 to go on with held lines) and hands
   on every line now complete, in order, so that no complete line waits for more input,
   until the sink refuses more. */
void kerv_framing_feed(kerv_framing_t *framing, size_t read_len, const kerv_framing_sink_t *sink,
                       void *ctx);

/* Takes in read_len bytes like kerv_framing_feed, but hands the held bytes as they are
   (line ends included) to take, which gives how many of them it took: the bytes of a text
   that is not made of lines. What it leaves stays held, to be framed as lines (lines_held). */
void kerv_framing_feed_raw(kerv_framing_t *framing, size_t read_len,
                           size_t (*take)(void *ctx, const char *bytes, size_t len), void *ctx);

#endif /* KERV_LINE_FRAMING_H */
