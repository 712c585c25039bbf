// Vertical expand row rules in NEON, shared by the band and the collapse.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "common/neon.h"
#include "fusion/fusion_dsp.h"

// emit(y, x, E) for every output row y0 <= y < y1 and group of 8 columns
// x < w8, E formed in 16-bit wrap-around arithmetic from scratch rows w8
// apart, held from expand_v_first(y0) on.  Wrap-around makes one routine
// serve unsigned and signed sums alike: the bit pattern of a + b, k * a is
// the same in both.  Rows 2j and 2j+1 share their loads; the edges repeat
// the first and last scratch rows (m = c at the top, p = c at the bottom).
template <class Emit>
static inline void expand_rows_neon(const uint16_t *hs, int w8, int h, int y0, int y1, Emit emit) {
    const int last = (h >> 1) - 1, first = expand_v_first(y0);
    const ptrdiff_t s = w8;
    const uint16x8_t six = vdupq_n_u16(6); // a vector: the by-scalar form reloads its lane every step
    for (int y = y0; y < y1;) {
        const int j = y >> 1;
        if (j > last) { // odd h: one more row, 7 h[last]
            const uint16_t *c = hs + (last - first) * s;
            for (int x = 0; x < w8; x += 8) emit(y, x, vmulq_n_u16(vld1q_u16(c + x), 7));
            break;
        }
        const uint16_t *c = hs + (j - first) * s;
        const uint16_t *m = j > 0 ? c - s : c, *p = j < last ? c + s : c;
        const bool even = !(y & 1), odd = !even || y + 1 < y1;
        for (int x = 0; x < w8; x += 8) {
            uint16x8_t c0 = vld1q_u16(c + x), p1 = vld1q_u16(p + x);
            if (even) emit(y, x, vmlaq_u16(vaddq_u16(vld1q_u16(m + x), p1), c0, six)); // m + 6 c + p
            if (odd) emit(2 * j + 1, x, vshlq_n_u16(vaddq_u16(c0, p1), 2));            // 4 c + 4 p
        }
        y = 2 * j + (odd ? 2 : 1);
    }
}
