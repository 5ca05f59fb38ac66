/*
 * The engine's entry points: one AT command line in, its whole answer written to a
 * descriptor; and the command-name hash that local applications ask for.
 */
#ifndef KERV_ENGINE_ENTRY_H
#define KERV_ENGINE_ENTRY_H

#include "kal_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Longest line the engine takes: the copy with its terminator must stay below 2048 bytes. */
#define RMMI_MAX_LINE_LEN 2046

/*
 * Runs the command line arg (zero-terminated, not kept) and writes every response and
 * result code to fd. Request worker thread only.
 */
void rmmi_process_multi_cmd(int fd, const char *arg);

/*
 * Two-step commands (a command line, then a message text up to Ctrl-Z), request worker
 * thread only. rmmi_two_step_prompt writes the line's echo (when echo is on) and the prompt
 * "\r\n> "; rmmi_two_step_send relays request (the line, its carriage return, the text and
 * the Ctrl-Z) to the modem as one request and writes its answer unchanged ("\r\nERROR\r\n"
 * when the modem daemon gives none); rmmi_two_step_cancel answers a text cancelled with ESC.
 */
void rmmi_two_step_prompt(int fd, const char *line);
void rmmi_two_step_send(int fd, const char *request);
void rmmi_two_step_cancel(int fd);

/*
 * The GEN_HASH answer: "hash_value1=[%d], hash_value2=[%d]" in res, at most string_length
 * characters plus the terminator. fd is not used. KAL_FALSE when the name has no hash.
 */
kal_bool rmmi_process_calcuate_cmd(int fd, const char *arg, char *res, int string_length);

#ifdef __cplusplus
}
#endif

#endif /* KERV_ENGINE_ENTRY_H */
