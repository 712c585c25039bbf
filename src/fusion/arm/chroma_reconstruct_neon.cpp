// NEON kernels of the chroma reconstruction.  Same extents and row order as
// the references in chroma_dsp.cpp, including the blend's last step landing
// on the next row.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/fusion_neon.h"

static inline int16x8_t widen_weights(const uint8_t *w) { return vreinterpretq_s16_u16(vmovl_u8(vld1_u8(w))); }

// 8 pairs per step: vld2 splits the 16 values into the first and the second
// components, so pair x's weight sits in lane x of both, and vst2 puts them
// back.  A step reads all 16 values before writing, as the reference does
// when its last step lands on the next row.
decl_chroma_blend_fn(chroma_blend_neon) {
    const int n = (int)ceil8((unsigned)pairs);
    for (int y = 0; y < rows; ++y) {
        int16_t *p0 = b0 + y * stride;
        const int16_t *p1 = b1 + y * stride, *p2 = b2 + y * stride;
        const uint8_t *v0 = w0 + y * w_stride, *v1 = w1 + y * w_stride, *v2 = w2 + y * w_stride;
        for (int x = 0; x < n; x += 8) {
            const int16x8_t k0 = widen_weights(v0 + x), k1 = widen_weights(v1 + x), k2 = widen_weights(v2 + x);
            const int16x8x2_t a0 = vld2q_s16(p0 + 2 * x), a1 = vld2q_s16(p1 + 2 * x), a2 = vld2q_s16(p2 + 2 * x);
            int16x8x2_t out;
            out.val[0] = blend3_s16(a0.val[0], a1.val[0], a2.val[0], k0, k1, k2);
            out.val[1] = blend3_s16(a0.val[1], a1.val[1], a2.val[1], k0, k1, k2);
            vst2q_s16(p0 + 2 * x, out);
        }
    }
}

// vld2 splits the pairs into their components and vst4 writes, per source
// pair k, output pair 2k = a + 6b + c then 2k+1 = 4b + 4c of each component
// (a, b, c: the source from pairs k-1, k and k+1 on); 16-bit wrapping sums
// as in the reference.  8 source pairs per step, a last step of 4.
static inline void collapse_pairs8(int16_t *d, const int16_t *q, int16x8_t six) {
    const int16x8x2_t a = vld2q_s16(q - 2), b = vld2q_s16(q), c = vld2q_s16(q + 2);
    int16x8x4_t out;
    for (int i = 0; i < 2; ++i) {
        out.val[i] = vmlaq_s16(vaddq_s16(a.val[i], c.val[i]), b.val[i], six);
        out.val[2 + i] = vshlq_n_s16(vaddq_s16(b.val[i], c.val[i]), 2);
    }
    vst4q_s16(d, out);
}

static inline void collapse_pairs4(int16_t *d, const int16_t *q, int16x4_t six) {
    const int16x4x2_t a = vld2_s16(q - 2), b = vld2_s16(q), c = vld2_s16(q + 2);
    int16x4x4_t out;
    for (int i = 0; i < 2; ++i) {
        out.val[i] = vmla_s16(vadd_s16(a.val[i], c.val[i]), b.val[i], six);
        out.val[2 + i] = vshl_n_s16(vadd_s16(b.val[i], c.val[i]), 2);
    }
    vst4_s16(d, out);
}

decl_chroma_collapse_h_fn(chroma_collapse_h_neon) {
    const int pitch = (int)ceil8(2u * (unsigned)dst_pairs);
    const int kmax = (int)ceil8(2u * (unsigned)src_pairs) / 2;
    const int e = 2 * src_pairs;
    const int16x8_t six = vdupq_n_s16(6);
    for (int j = 0; j < rows; ++j, src += src_stride, dst += pitch) {
        int16_t *q = src;
        pad_pairs_repeat(q, src_pairs);
        const int16_t *s = q, *end = q + 2 * (kmax & ~7);
        int16_t *d = dst;
        for (; s != end; s += 16, d += 32) collapse_pairs8(d, s, six);
        if (kmax & 4) collapse_pairs4(d, s, vget_low_s16(six));
        odd_last_pair(dst, dst_pairs, q, e);
    }
}

// Output rows 2j and 2j+1 share scratch rows j and j+1, so they are formed
// together: E[2j] = h[j-1] + 6 h[j] + h[j+1], E[2j+1] = 4 h[j] + 4 h[j+1]
// (rows clamped at the ends); a range's odd first row, a lone last row and
// an odd row count's last row (7 h[last]) go on their own by their taps.
// E wraps to 16 bits; vrsra adds (E + 32) >> 6 with the rounding done at
// full precision and the accumulation wrapping, as the reference does.
decl_chroma_collapse_v_fn(chroma_collapse_v_neon) {
    const int n = (int)ceil8((unsigned)values);
    const int hrows = rows >> 1, last = hrows - 1, first = expand_v_first(y0);
    const int16x8_t six = vdupq_n_s16(6);
    const auto row = [&](int y) {
        const ExpandTaps t = expand_taps(y, hrows);
        const int16_t *ha = h + (t.ra - first) * n, *hb = h + (t.rb - first) * n, *hc = h + (t.rc - first) * n;
        int16_t *d = dst + y * stride;
        for (int i = 0; i < n; i += 8) {
            const int16x8_t e = vmlaq_n_s16(vmlaq_n_s16(vmulq_n_s16(vld1q_s16(ha + i), t.wa), vld1q_s16(hb + i), t.wb),
                                            vld1q_s16(hc + i), t.wc);
            vst1q_s16(d + i, vrsraq_n_s16(vld1q_s16(d + i), e, 6));
        }
    };
    int y = y0;
    if (y & 1) row(y++);
    for (; y + 1 < y1 && (y >> 1) <= last; y += 2) {
        const int j = y >> 1;
        const int16_t *hm = h + ((j > 0 ? j - 1 : 0) - first) * n, *hc = h + (j - first) * n;
        const int16_t *hp = h + ((j < last ? j + 1 : last) - first) * n;
        int16_t *d0 = dst + y * stride, *d1 = d0 + stride;
        for (int i = 0; i < n; i += 8) {
            const int16x8_t m = vld1q_s16(hm + i), c = vld1q_s16(hc + i), p = vld1q_s16(hp + i);
            const int16x8_t even = vmlaq_s16(vaddq_s16(m, p), c, six);
            const int16x8_t odd = vshlq_n_s16(vaddq_s16(c, p), 2);
            vst1q_s16(d0 + i, vrsraq_n_s16(vld1q_s16(d0 + i), even, 6));
            vst1q_s16(d1 + i, vrsraq_n_s16(vld1q_s16(d1 + i), odd, 6));
        }
    }
    if (y < y1) row(y);
}
