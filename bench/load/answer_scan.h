/*
 * Finds where the answers end in the byte stream that a host reads back from an AT
 * command server. An answer ends at its final result code line ("OK", "ERROR",
 * "+CME ERROR: <n>", ...); one read may carry several answers, or only part of one, so
 * the scan keeps its place in the current line between reads.
 */
#ifndef LOAD_ANSWER_SCAN_H
#define LOAD_ANSWER_SCAN_H

#include <stddef.h>

/* Enough of a line's start to tell every final result code from other text. */
enum { ANSWER_SCAN_LINE_HEAD = 16 };

struct answer_scan_t {
    char line_head[ANSWER_SCAN_LINE_HEAD]; /* first characters of the line, CRs left out */
    size_t line_len;                       /* characters of the line so far, CRs left out */
};

struct answer_count_t {
    int answers; /* answers whose final result code ended in the bytes fed */
    int errors;  /* of those, the ones that ended in anything but OK */
};

void answer_scan_reset(answer_scan_t *scan);
answer_count_t answer_scan_feed(answer_scan_t *scan, const char *bytes, size_t len);

#endif /* LOAD_ANSWER_SCAN_H */
