/*
 * Counts the answers that end in the bytes a host reads back from an AT command server.
 * One read may carry several answers, or only part of one; the final result code line that
 * ends each answer is recognised by the same recogniser kervctl uses, which keeps its place
 * in the current line between reads.
 */
#ifndef LOAD_ANSWER_COUNT_H
#define LOAD_ANSWER_COUNT_H

#include "kervctl_answer.h"

#include <stddef.h>

struct answer_count_t {
    int answers; /* answers whose final result code ended in the bytes fed */
    int errors;  /* of those, the ones that ended in anything but OK */
};

answer_count_t answer_count_feed(kervctl_answer_scan_t *scan, const char *bytes, size_t len);

#endif /* LOAD_ANSWER_COUNT_H */
