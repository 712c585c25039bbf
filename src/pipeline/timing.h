// The merge's clocks: the exported stage counters (milliseconds, shared by
// every context) and the per-context status times (microseconds).
#pragma once
#include <stdint.h>
#include <sys/time.h>

// Contexts merging at once store and load the counters atomically (relaxed:
// each counter is a lone value, ordered with nothing else).
inline void hdr_counter_set(int64_t *counter, int64_t value) {
    __atomic_store_n(counter, value, __ATOMIC_RELAXED);
}
inline int64_t hdr_counter_get(const int64_t *counter) {
    return __atomic_load_n(counter, __ATOMIC_RELAXED);
}

inline int64_t hdr_now_ms() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return (int64_t)tv.tv_sec * 1000 + tv.tv_usec / 1000;
}

inline int64_t status_now_us() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return (int64_t)tv.tv_sec * 1000000 + tv.tv_usec;
}

// Stamps a stage's start and returns it; the end stamp sets the total too.
inline int64_t hdr_stage_start(int64_t *start) {
    const int64_t now = hdr_now_ms();
    hdr_counter_set(start, now);
    return now;
}
inline void hdr_stage_end(int64_t *end, int64_t *total, int64_t started) {
    const int64_t now = hdr_now_ms();
    hdr_counter_set(end, now);
    hdr_counter_set(total, now - started);
}
