// NEON kernels of the chroma Laplacian pyramid.  Same extents, row order and
// in-place pads as the references in chroma_dsp.cpp.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/fusion_neon.h"

decl_chroma_copy_flip_fn(chroma_copy_flip_neon) {
    const uint8x16_t flip = vdupq_n_u8(0x80);
    for (int r = 0; r < rows; r += 2)
        for (int k = 0; k < 2; ++k) {
            const uint8_t *s = src + (r + k) * src_stride;
            int8_t *d = dst + (r + k) * dst_stride;
            int i = 0;
            for (; i + 16 <= bytes; i += 16)
                vst1q_s8(d + i, vreinterpretq_s8_u8(veorq_u8(vld1q_u8(s + i), flip)));
            if (i + 8 <= bytes) {
                vst1_s8(d + i, vreinterpret_s8_u8(veor_u8(vld1_u8(s + i), vget_low_u8(flip))));
                i += 8;
            }
            for (; i < bytes; ++i) d[i] = (int8_t)(uint8_t)(s[i] ^ 0x80);
        }
}

static inline int16x8_t widen_s8(uint8x8_t v) { return vmovl_s8(vreinterpret_s8_u8(v)); }

// Eight outputs (four pairs j = 4s .. 4s+3) need source pairs 8s-2 .. 8s+8.
// Splitting pairs into even and odd (16-bit units) puts every tap of an output
// pair in one lane: taps -2, 0, +2 are even pairs shifted by 0, 1, 2 units,
// taps -1, +1 odd pairs shifted by 0, 1.  Sums stay within 16 bits.
decl_chroma_reduce_h_fn(chroma_reduce_h_neon) {
    const int n = (int)ceil8(2u * (unsigned)(pairs >> 1));
    for (int r = 0; r < rows; ++r, src += src_stride, dst += n) {
        int8_t *p = src;
        pad_pairs_mirror(p, pairs);
        const uint8_t *u = (const uint8_t *)p;
        for (int i = 0; i < n; i += 8) {
            const uint8_t *s = u + 2 * i - 4;
            const uint16x8_t a = vreinterpretq_u16_u8(vld1q_u8(s));
            const uint8x8_t b8 = vld1_u8(s + 16);
            const uint16x8_t b = vreinterpretq_u16_u8(vcombine_u8(b8, b8));
            const uint16x8x2_t eo = vuzpq_u16(a, b);
            const uint8x16_t ev = vreinterpretq_u8_u16(eo.val[0]);
            const uint8x16_t od = vreinterpretq_u8_u16(eo.val[1]);
            const int16x8_t e0 = widen_s8(vget_low_u8(ev));
            const int16x8_t e1 = widen_s8(vext_u8(vget_low_u8(ev), vget_high_u8(ev), 2));
            const int16x8_t e2 = widen_s8(vext_u8(vget_low_u8(ev), vget_high_u8(ev), 4));
            const int16x8_t o0 = widen_s8(vget_low_u8(od));
            const int16x8_t o1 = widen_s8(vext_u8(vget_low_u8(od), vget_high_u8(od), 2));
            int16x8_t t = vaddq_s16(e0, e2);
            t = vaddq_s16(t, vshlq_n_s16(vaddq_s16(o0, o1), 2));
            t = vmlaq_n_s16(t, e1, 6);
            vst1q_s16(dst + i, t);
        }
    }
}

decl_chroma_reduce_v_fn(chroma_reduce_v_neon) {
    const int n = (int)ceil8((unsigned)values);
    for (int j = 0; j < rows; ++j, dst += dst_stride) {
        const int16_t *c = src + 2 * j * n;
        for (int i = 0; i < n; i += 8) {
            int16x8_t s;
            if (j == 0) {
                // 6 t0 + 8 t1 + 2 t2
                s = vmulq_n_s16(vld1q_s16(c + i), 6);
                s = vaddq_s16(s, vshlq_n_s16(vld1q_s16(c + i + n), 3));
                s = vaddq_s16(s, vshlq_n_s16(vld1q_s16(c + i + 2 * n), 1));
            } else {
                const int16x8_t m2 = vld1q_s16(c + i - 2 * n), m1 = vld1q_s16(c + i - n);
                const int16x8_t c0 = vld1q_s16(c + i), p1 = vld1q_s16(c + i + n);
                s = vshlq_n_s16(vaddq_s16(m1, p1), 2);
                if (j == rows - 1) {
                    // bottom: the row below is the centre row again
                    s = vaddq_s16(s, m2);
                    s = vmlaq_n_s16(s, c0, 7);
                } else {
                    s = vaddq_s16(s, vaddq_s16(m2, vld1q_s16(c + i + 2 * n)));
                    s = vmlaq_n_s16(s, c0, 6);
                }
            }
            vst1_s8(dst + i, vrshrn_n_s16(s, 8));
        }
    }
}

decl_chroma_expand_h_fn(chroma_expand_h_neon) {
    const int pitch = (int)ceil8(2u * (unsigned)dst_pairs);
    const int kmax = (int)ceil8((unsigned)src_pairs);
    const int e = 2 * src_pairs;
    for (int j = 0; j < rows; ++j, src += src_stride, dst += pitch) {
        int8_t *q = src;
        pad_pairs_repeat(q, src_pairs);
        for (int k = 0; k < kmax; k += 8) {
            const int8x16_t a = vld1q_s8(q + 2 * k - 2), b = vld1q_s8(q + 2 * k),
                            c = vld1q_s8(q + 2 * k + 2);
            for (int half = 0; half < 2; ++half) {
                const int16x8_t al = vmovl_s8(half ? vget_high_s8(a) : vget_low_s8(a));
                const int16x8_t bl = vmovl_s8(half ? vget_high_s8(b) : vget_low_s8(b));
                const int16x8_t cl = vmovl_s8(half ? vget_high_s8(c) : vget_low_s8(c));
                const int16x8_t even = vmlaq_n_s16(vaddq_s16(al, cl), bl, 6);
                const int16x8_t odd = vshlq_n_s16(vaddq_s16(bl, cl), 2);
                store_interleaved(dst + 4 * k + 16 * half, even, odd);
            }
        }
        odd_last_pair(dst, dst_pairs, q, e);
    }
}

decl_chroma_expand_band_fn(chroma_expand_band_neon) {
    const int n = (int)ceil8((unsigned)values);
    const int hrows = rows >> 1;
    for (int y = 0; y < rows; ++y) {
        int16_t *b = band + y * band_stride;
        if (zero_edges && chroma_zero_row(y, rows)) {
            for (int i = 0; i < n; i += 8) vst1q_s16(b + i, vdupq_n_s16(0));
            continue;
        }
        const ExpandTaps t = expand_taps(y, hrows);
        const int16_t *ha = h + t.ra * n, *hb = h + t.rb * n, *hc = h + t.rc * n;
        const int8_t *gr = g + y * g_stride;
        for (int i = 0; i < n; i += 8) {
            int16x8_t E = vmulq_n_s16(vld1q_s16(ha + i), t.wa);
            E = vmlaq_n_s16(E, vld1q_s16(hb + i), t.wb);
            E = vmlaq_n_s16(E, vld1q_s16(hc + i), t.wc);
            vst1q_s16(b + i, vsubq_s16(vmovl_s8(vld1_s8(gr + i)), vrshrq_n_s16(E, 6)));
        }
    }
}

decl_chroma_residual_fn(chroma_residual_neon) {
    for (int y = 0; y < rows; ++y) {
        int16_t *d = dst + y * dst_stride;
        const int8_t *s = src + y * src_stride;
        int i = 0;
        for (; i + 8 <= values; i += 8) vst1q_s16(d + i, vmovl_s8(vld1_s8(s + i)));
        for (; i < values; ++i) d[i] = s[i];
    }
}
