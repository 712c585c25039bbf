// Vertical expand row rules in NEON, shared by the band and the collapse.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "common/neon.h"

// emit(y, x, E) for every output row y < h and group of 8 columns x < w8,
// E formed in 16-bit wrap-around arithmetic from scratch rows w8 apart.
// Wrap-around makes one routine serve unsigned and signed sums alike: the
// bit pattern of a + b, k * a is the same in both.
template <class Emit>
static inline void expand_rows_neon(const uint16_t *hs, int w8, int h, Emit emit) {
    const int hh = h >> 1;
    const ptrdiff_t s = w8;
    for (int x = 0; x < w8; x += 8) {
        uint16x8_t h0 = vld1q_u16(hs + x), h1 = vld1q_u16(hs + s + x);
        emit(0, x, vmlaq_n_u16(h1, h0, 7));                 // 7 h0 + h1
        emit(1, x, vshlq_n_u16(vaddq_u16(h0, h1), 2));      // 4 h0 + 4 h1
    }
    for (int j = 1; j < hh - 1; ++j) {
        const uint16_t *c = hs + j * s;
        for (int x = 0; x < w8; x += 8) {
            uint16x8_t m = vld1q_u16(c - s + x), c0 = vld1q_u16(c + x), p = vld1q_u16(c + s + x);
            emit(2 * j, x, vmlaq_n_u16(vaddq_u16(m, p), c0, 6)); // m + 6 c + p
            emit(2 * j + 1, x, vshlq_n_u16(vaddq_u16(c0, p), 2)); // 4 c + 4 p
        }
    }
    const int j = hh - 1;
    const uint16_t *c = hs + j * s;
    for (int x = 0; x < w8; x += 8) {
        uint16x8_t m = vld1q_u16(c - s + x), c0 = vld1q_u16(c + x);
        emit(2 * j, x, vmlaq_n_u16(m, c0, 7));  // m + 7 c
        emit(2 * j + 1, x, vshlq_n_u16(c0, 3)); // 8 c
        if (h & 1) emit(2 * j + 2, x, vmulq_n_u16(c0, 7));
    }
}
