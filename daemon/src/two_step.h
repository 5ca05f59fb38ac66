/*
 * Two-step commands: the set forms of AT+CMGS, AT+CMGW and AT+CMGC, and AT+CNMA with a
 * length, take a message text after their line, as on a modem. With the store key
 * KERV_PROMPT_COMMANDS on, the channel server thread recognises such a line as it frames
 * it and queues a prompt for the worker instead of the line; the host's next bytes (line
 * ends included) are the text, up to Ctrl-Z (send) or ESC (cancel). The worker then gets
 * one element: the line, its carriage return, the text and the Ctrl-Z, which goes to the
 * modem daemon as one request. With the key absent or 0 nothing here is used.
 *
 * The text state belongs to the channel server thread; only the key's switch is set from
 * other threads (start-up, RELOAD).
 */
#ifndef KERV_TWO_STEP_H
#define KERV_TWO_STEP_H

#include "kal_common.h"

#include <cstddef>

enum { KERV_TEXT_SEND = 0x1A, KERV_TEXT_CANCEL = 0x1B };

/* Sets the key's value; read by the channel server thread at each line. */
void kerv_two_step_configure(kal_bool on);
/* Server thread: when the key is on and line is a two-step command, queues its prompt for
   the host on host_fd, opens the text and gives KAL_TRUE. */
kal_bool kerv_two_step_begin(int host_fd, const char *line, size_t line_len);
/* Server thread: a text is open, so the host's next bytes are not lines. */
kal_bool kerv_two_step_text_open();
/* Server thread: takes the text's bytes from bytes, up to and with its end character, and
   gives how many it took; at the end, queues the request (or the answer) for the worker. */
size_t kerv_two_step_take(int host_fd, const char *bytes, size_t len);
/* Server thread: a new host starts with no open text. */
void kerv_two_step_reset();

#endif /* KERV_TWO_STEP_H */
