/*
 * Recognises where the answer to one AT command line ends: the line that holds its final
 * result code. Bytes are fed as they arrive from the command channel; lines end at a
 * carriage return or a line feed, so echoed commands, verbose ("\r\nOK\r\n") and numeric
 * ("\r\n0\r\n", or a modem's "0\r") result codes are all seen as whole lines.
 */
#ifndef KERVCTL_ANSWER_H
#define KERVCTL_ANSWER_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    KERVCTL_ANSWER_PENDING = 0, /* no final result code yet */
    KERVCTL_ANSWER_OK = 1,      /* "OK", or numeric "0" */
    KERVCTL_ANSWER_FAILED = 2   /* "ERROR", "+CME ERROR: n", "+CMS ERROR: n", numeric "3"/"4",
                                   or a call that ended: "NO CARRIER", "BUSY", ... */
} kervctl_answer_e;

/* Only the start of a line is kept: a longer line cannot be a final result code. */
#define KERVCTL_ANSWER_LINE_MAX 32

typedef struct {
    char line[KERVCTL_ANSWER_LINE_MAX];
    size_t len; /* bytes of the current line seen so far (may exceed the kept part) */
} kervctl_answer_scan_t;

void kervctl_answer_reset(kervctl_answer_scan_t *scan);

/* The final result code that one complete line (without its line end) is, if any. */
kervctl_answer_e kervctl_final_result(const char *line, size_t len);

/*
 * Feeds len bytes. When a final result line completes within them, returns its result and
 * sets *used to the bytes up to and including its line end (and the line feed of a
 * "\r\n" pair); the rest belongs to what follows. Otherwise returns PENDING, *used = len.
 */
kervctl_answer_e kervctl_answer_feed(kervctl_answer_scan_t *scan, const char *bytes, size_t len,
                                     size_t *used);

/*
 * How many commands a command line holds: one more than its ';' separators outside
 * double quotes. The answer to such a line may end in up to that many final codes.
 */
int kervctl_line_command_count(const char *line);

#ifdef __cplusplus
}
#endif

#endif /* KERVCTL_ANSWER_H */
