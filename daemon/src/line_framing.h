/*
 * Line framing of one host's bytes, fed read by read by the channel server thread.
 */
#ifndef KERV_FRAMING_H
#define KERV_FRAMING_H

#include "kal_common.h"

#include <cstddef>

/*
 * A line ends at a carriage return, a line feed or a NUL; further CR and LF right after
 * the terminator are skipped, also when they arrive in a later read. A line that fills the buffer
 * without a terminator is too long: it is answered with one error and its bytes are
 * discarded up to its terminator.
 */
enum { KERV_FRAME_BUF_SIZE = 1024 };

typedef struct {
    char cmd_buf[KERV_FRAME_BUF_SIZE]; /* held bytes, NUL after them */
    int cmd_buf_offset;                /* number of held bytes, at most 1023 */
    kal_bool discarding;               /* inside an over-long line, waiting for its end */
    kal_bool after_line;               /* the held bytes ended with a line end */
} kerv_framing_t;

/* What the framer hands on: a complete line, or the error for an over-long one. */
typedef struct {
    void (*line)(void *ctx, const char *line, size_t line_len);
    void (*too_long)(void *ctx);
} kerv_framing_sink_t;

void kerv_framing_reset(kerv_framing_t *framing);
/* Room for the next read, at cmd_buf + cmd_buf_offset; never 0. */
size_t kerv_framing_room(const kerv_framing_t *framing);
/* Takes in read_len bytes just read into the room and hands on every line now complete,
   in order, so that no complete line waits for more input. */
void kerv_framing_feed(kerv_framing_t *framing, size_t read_len, const kerv_framing_sink_t *sink,
                       void *ctx);

#endif /* KERV_FRAMING_H */
