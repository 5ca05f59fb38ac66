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
 * Whether a line's own final result code follows its commands' ones. A line of more than
 * one command that runs to its end always gets one. After an error that stops such a line,
 * one follows only when a command that ran had failed inside the daemon, which the bytes on
 * the wire cannot tell apart from a modem's own error answer.
 */
typedef enum {
    KERVCTL_LINE_RESULT_NONE = 0,
    KERVCTL_LINE_RESULT_FOLLOWS = 1,
    KERVCTL_LINE_RESULT_MAYBE = 2
} kervctl_line_result_e;

/*
 * What the daemon answers to one command line, worked out from the line the way the daemon
 * takes it apart: the "AT" that starts it, the commands separated by ';' outside double
 * quotes, and the errors that stop a line before its end. Every command that runs answers
 * with exactly one final result code (a relayed command with the modem's own).
 */
typedef struct {
    int answered; /* 0: the daemon writes nothing at all (no "AT" in the line) */
    int finals;   /* final codes of the commands that run and of an error that stops */
    kervctl_line_result_e line_result;
} kervctl_line_plan_t;

/* Lines of at least this many characters are refused whole with one error result. */
#define KERVCTL_LINE_REFUSED_LEN 1023

void kervctl_plan_line(const char *line, kervctl_line_plan_t *plan);

#ifdef __cplusplus
}
#endif

#endif /* KERVCTL_ANSWER_H */
