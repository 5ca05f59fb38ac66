/*
 * Round-trip samples of the load client (nanoseconds, one per answer) and the figures
 * reported from them.
 */
#ifndef LOAD_LATENCY_H
#define LOAD_LATENCY_H

#include <stddef.h>
#include <stdint.h>
#include <vector>

/* Nearest-rank percentile (0 < percent <= 100) of samples, which it sorts; 0 when empty. */
uint32_t latency_percentile(std::vector<uint32_t> *samples, double percent);

/* The median, the 99th percentile and the longest, in microseconds. */
struct latency_figures_t {
    double p50_us;
    double p99_us;
    double max_us;
};
latency_figures_t latency_figures(std::vector<uint32_t> samples);

/* Appends samples to the file at path (raw native uint32 values); false on failure. */
bool latency_append(const char *path, const std::vector<uint32_t> &samples);
/* Adds the samples stored in the file at path to samples; false on failure. */
bool latency_load(const char *path, std::vector<uint32_t> *samples);

#endif /* LOAD_LATENCY_H */
