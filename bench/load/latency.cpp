#include "latency.h"

#include <algorithm>
#include <math.h>
#include <stdio.h>

uint32_t latency_percentile(std::vector<uint32_t> *samples, double percent) {
    if (samples->empty())
        return 0;
    std::sort(samples->begin(), samples->end());
    size_t rank = (size_t)ceil(percent / 100.0 * (double)samples->size());
    return (*samples)[rank == 0 ? 0 : rank - 1];
}

latency_figures_t latency_figures(std::vector<uint32_t> samples) {
    latency_figures_t figures;
    figures.p50_us = latency_percentile(&samples, 50.0) / 1000.0;
    figures.p99_us = latency_percentile(&samples, 99.0) / 1000.0;
    figures.max_us = latency_percentile(&samples, 100.0) / 1000.0;
    return figures;
}

bool latency_append(const char *path, const std::vector<uint32_t> &samples) {
    FILE *file = fopen(path, "ab");
    if (file == nullptr)
        return false;
    size_t written = fwrite(samples.data(), sizeof(uint32_t), samples.size(), file);
    bool closed = fclose(file) == 0;
    return written == samples.size() && closed;
}

bool latency_load(const char *path, std::vector<uint32_t> *samples) {
    FILE *file = fopen(path, "rb");
    if (file == nullptr)
        return false;
    uint32_t chunk[4096];
    size_t got;
    while ((got = fread(chunk, sizeof(uint32_t), 4096, file)) > 0)
        samples->insert(samples->end(), chunk, chunk + got);
    bool ok = ferror(file) == 0;
    fclose(file);
    return ok;
}
