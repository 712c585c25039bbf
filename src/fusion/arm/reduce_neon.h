// Kernels shared by the NEON weight and image pyramids.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "common/arith.h"
#include "common/neon.h"
#include "fusion/pyramid_rows.h"

// Decimating horizontal pass for the centre tap C (54 for the weights, 6 for
// the image).  vld2 splits bytes into even and odd lanes, so from row
// offsets 2k-2, 2k and 2k+2 the lanes hold p[2k-2], p[2k-1], p[2k], p[2k+1]
// and p[2k+2] of the outputs; the widening multiply-accumulates form the
// scalar 16-bit sums exactly.  16 outputs per step, a last step of 8.
static inline uint16x8_t reduce_taps(uint8x8_t m2, uint8x8_t m1, uint8x8_t c0, uint8x8_t p1, uint8x8_t p2,
                                     uint8x8_t centre) {
    uint16x8_t s = vaddl_u8(m2, p2);
    s = vmlal_u8(s, c0, centre);
    s = vmlal_u8(s, m1, vdup_n_u8(4));
    return vmlal_u8(s, p1, vdup_n_u8(4));
}

template <int C>
static decl_reduce_h_fn(pyramid_reduce_h_neon) {
    const int n = (int)ceil8((unsigned)(w >> 1));
    const uint8x8_t centre = vdup_n_u8(C);
    for (int r = 0; r < h; ++r, src += src_stride, dst += n) {
        uint8_t *p = src;
        pad_mirror(p, w);
        const uint8_t *b = p, *end = p + 2 * (n & ~15);
        uint16_t *d = dst;
        for (; b != end; b += 32, d += 16) {
            const uint8x16x2_t lo = vld2q_u8(b - 2), mid = vld2q_u8(b), hi = vld2q_u8(b + 2);
            vst1q_u16(d, reduce_taps(vget_low_u8(lo.val[0]), vget_low_u8(lo.val[1]), vget_low_u8(mid.val[0]),
                                     vget_low_u8(mid.val[1]), vget_low_u8(hi.val[0]), centre));
            vst1q_u16(d + 8, reduce_taps(vget_high_u8(lo.val[0]), vget_high_u8(lo.val[1]), vget_high_u8(mid.val[0]),
                                         vget_high_u8(mid.val[1]), vget_high_u8(hi.val[0]), centre));
        }
        if (n & 8) {
            const uint8x8x2_t lo = vld2_u8(b - 2), mid = vld2_u8(b), hi = vld2_u8(b + 2);
            vst1q_u16(d, reduce_taps(lo.val[0], lo.val[1], mid.val[0], mid.val[1], hi.val[0], centre));
        }
    }
}
