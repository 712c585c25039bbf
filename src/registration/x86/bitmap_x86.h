// Shared by the SSE4.1 and AVX2 bitmap rows (internal copies per file).
#pragma once
#include <stdint.h>

namespace {

// The reference's rule for the samples of the last, partial word pair.
template <int Level>
inline void bitmap_tail(const uint8_t *src, unsigned c0, unsigned width, uint8_t median, uint8_t tolerance,
                        uint32_t *dst) {
    uint32_t t = 0, e = 0;
    for (unsigned b = 0; c0 + b < width; ++b) {
        const uint8_t p = src[(size_t)(c0 + b) << Level];
        const uint8_t diff = p > median ? (uint8_t)(p - median) : (uint8_t)(median - p);
        t |= (uint32_t)(p > median) << (31 - b);
        e |= (uint32_t)(diff >= tolerance) << (31 - b);
    }
    dst[0] = t;
    dst[1] = e;
}

} // namespace
