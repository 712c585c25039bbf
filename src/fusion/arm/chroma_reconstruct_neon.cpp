// NEON kernels of the chroma reconstruction.  Same extents and row order as
// the references in chroma_dsp.cpp, including the blend's last step landing
// on the next row.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/fusion_neon.h"

// 16 values of b0 (8 pairs) per step.  Each weight is duplicated for the two
// components; products and sums in 32 bits, vrshrn = (a + 128) >> 8 with the
// low 16 bits kept, as in the reference.
decl_chroma_blend_fn(chroma_blend_neon) {
    const int n = (int)ceil8((unsigned)pairs);
    for (int y = 0; y < rows; ++y) {
        int16_t *p0 = b0 + y * stride;
        const int16_t *p1 = b1 + y * stride, *p2 = b2 + y * stride;
        const uint8_t *v0 = w0 + y * w_stride, *v1 = w1 + y * w_stride, *v2 = w2 + y * w_stride;
        for (int x = 0; x < n; x += 8) {
            const int16x8_t ws0 = vreinterpretq_s16_u16(vmovl_u8(vld1_u8(v0 + x)));
            const int16x8_t ws1 = vreinterpretq_s16_u16(vmovl_u8(vld1_u8(v1 + x)));
            const int16x8_t ws2 = vreinterpretq_s16_u16(vmovl_u8(vld1_u8(v2 + x)));
            const int16x8x2_t d0 = vzipq_s16(ws0, ws0), d1 = vzipq_s16(ws1, ws1),
                              d2 = vzipq_s16(ws2, ws2);
            for (int half = 0; half < 2; ++half) {
                const int o = 2 * x + 8 * half;
                const int16x8_t a0 = vld1q_s16(p0 + o), a1 = vld1q_s16(p1 + o),
                                a2 = vld1q_s16(p2 + o);
                int32x4_t lo = vmull_s16(vget_low_s16(a0), vget_low_s16(d0.val[half]));
                lo = vmlal_s16(lo, vget_low_s16(a1), vget_low_s16(d1.val[half]));
                lo = vmlal_s16(lo, vget_low_s16(a2), vget_low_s16(d2.val[half]));
                int32x4_t hi = vmull_s16(vget_high_s16(a0), vget_high_s16(d0.val[half]));
                hi = vmlal_s16(hi, vget_high_s16(a1), vget_high_s16(d1.val[half]));
                hi = vmlal_s16(hi, vget_high_s16(a2), vget_high_s16(d2.val[half]));
                vst1q_s16(p0 + o, vcombine_s16(vrshrn_n_s32(lo, 8), vrshrn_n_s32(hi, 8)));
            }
        }
    }
}

// Even pair 2k and odd pair 2k+1 in separate vectors, interleaved as 32-bit
// units (one pair each); 16-bit wrapping sums as in the reference.
decl_chroma_collapse_h_fn(chroma_collapse_h_neon) {
    const int pitch = (int)ceil8(2u * (unsigned)dst_pairs);
    const int kmax = (int)ceil8(2u * (unsigned)src_pairs) / 2;
    const int e = 2 * src_pairs;
    for (int j = 0; j < rows; ++j, src += src_stride, dst += pitch) {
        int16_t *q = src;
        pad_pairs_repeat(q, src_pairs);
        for (int k = 0; k < kmax; k += 4) {
            const int16x8_t a = vld1q_s16(q + 2 * k - 2), b = vld1q_s16(q + 2 * k),
                            c = vld1q_s16(q + 2 * k + 2);
            const int16x8_t even = vmlaq_n_s16(vaddq_s16(a, c), b, 6);
            const int16x8_t odd = vshlq_n_s16(vaddq_s16(b, c), 2);
            store_interleaved(dst + 4 * k, even, odd);
        }
        odd_last_pair(dst, dst_pairs, q, e);
    }
}

// E in wrapping 16-bit sums; vrsra adds (E + 32) >> 6 with the rounding done
// at full precision and the accumulation wrapping, as the reference does.
decl_chroma_collapse_v_fn(chroma_collapse_v_neon) {
    const int n = (int)ceil8((unsigned)values);
    const int hrows = rows >> 1;
    for (int y = 0; y < rows; ++y) {
        const ExpandTaps t = expand_taps(y, hrows);
        const int16_t *ha = h + t.ra * n, *hb = h + t.rb * n, *hc = h + t.rc * n;
        int16_t *d = dst + y * stride;
        for (int i = 0; i < n; i += 8) {
            int16x8_t E = vmulq_n_s16(vld1q_s16(ha + i), t.wa);
            E = vmlaq_n_s16(E, vld1q_s16(hb + i), t.wb);
            E = vmlaq_n_s16(E, vld1q_s16(hc + i), t.wc);
            vst1q_s16(d + i, vrsraq_n_s16(vld1q_s16(d + i), E, 6));
        }
    }
}
