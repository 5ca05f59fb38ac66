#include "answer_count.h"

answer_count_t answer_count_feed(kervctl_answer_scan_t *scan, const char *bytes, size_t len) {
    answer_count_t count = {0, 0};
    while (len > 0) {
        size_t used = 0;
        kervctl_answer_e result = kervctl_answer_feed(scan, bytes, len, &used);
        if (result != KERVCTL_ANSWER_PENDING)
            count.answers++;
        if (result == KERVCTL_ANSWER_FAILED)
            count.errors++;
        bytes += used;
        len -= used;
    }
    return count;
}
