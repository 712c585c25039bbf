// Kernels shared by the NEON weight and image pyramids.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "common/arith.h"
#include "common/neon.h"
#include "fusion/pyramid_rows.h"

// Decimating horizontal pass for the centre tap C (54 for the weights, 6 for
// the image).  vld2 splits 16 bytes into even and odd lanes, so from row
// offsets 2k-2, 2k and 2k+2 the lanes hold p[2k-2], p[2k-1], p[2k], p[2k+1]
// and p[2k+2] of eight outputs; the 16-bit sums are the scalar ones exactly.
template <int C>
static decl_reduce_h_fn(pyramid_reduce_h_neon) {
    const int n = (int)ceil8((unsigned)(w >> 1));
    const uint8x8_t centre = vdup_n_u8(C);
    for (int r = 0; r < h; ++r, src += src_stride, dst += n) {
        uint8_t *p = src;
        pad_mirror(p, w);
        for (int k = 0; k < n; k += 8) {
            const uint8_t *b = p + 2 * k;
            uint8x8x2_t lo = vld2_u8(b - 2), mid = vld2_u8(b), hi = vld2_u8(b + 2);
            uint16x8_t s = vaddl_u8(lo.val[0], hi.val[0]);                   // p[-2] + p[2]
            s = vmlal_u8(s, mid.val[0], centre);                              // + C p[0]
            s = vaddq_u16(s, vshlq_n_u16(vaddl_u8(lo.val[1], mid.val[1]), 2)); // + 4 (p[-1] + p[1])
            vst1q_u16(dst + k, s);
        }
    }
}
