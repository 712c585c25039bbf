// NEON kernels of the chroma Laplacian pyramid.  Same extents, row order and
// in-place pads as the references in chroma_dsp.cpp.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/fusion_neon.h"

// 64 bytes per step (vld4/vst4 put the bytes back where they came from),
// then 16; a row's last partial vector is redone overlapping the previous
// one, which writes the same bytes again and reads nothing past the row.
decl_chroma_copy_flip_fn(chroma_copy_flip_neon) {
    const uint8x16_t flip = vdupq_n_u8(0x80);
    const int copied = (rows + 1) & ~1; // rows go in pairs
    for (int r = 0; r < copied; ++r, src += src_stride, dst += dst_stride) {
        const uint8_t *s = src;
        uint8_t *d = (uint8_t *)dst;
        int i = 0;
        for (; i + 64 <= bytes; i += 64) {
            uint8x16x4_t v = vld4q_u8(s + i);
            v.val[0] = veorq_u8(v.val[0], flip);
            v.val[1] = veorq_u8(v.val[1], flip);
            v.val[2] = veorq_u8(v.val[2], flip);
            v.val[3] = veorq_u8(v.val[3], flip);
            vst4q_u8(d + i, v);
        }
        for (; i + 16 <= bytes; i += 16) vst1q_u8(d + i, veorq_u8(vld1q_u8(s + i), flip));
        if (i == bytes) continue;
        if (bytes >= 16) {
            vst1q_u8(d + bytes - 16, veorq_u8(vld1q_u8(s + bytes - 16), flip));
        } else if (bytes >= 8) {
            vst1_u8(d, veor_u8(vld1_u8(s), vget_low_u8(flip)));
            vst1_u8(d + bytes - 8, veor_u8(vld1_u8(s + bytes - 8), vget_low_u8(flip)));
        } else {
            for (; i < bytes; ++i) d[i] = (uint8_t)(s[i] ^ 0x80);
        }
    }
}

// Pairs as 16-bit units: vld2 splits them into even and odd pairs, so from
// byte offsets -4, 0 and +4 of output pair m the lanes hold source pairs
// 2m-2, 2m-1 (first load), 2m, 2m+1 (second) and 2m+2 (third).  The bytes of
// a vector of pairs are the output values in order, so the widening
// multiply-accumulates give the outputs directly; sums fit 16 bits.
static inline int16x8_t reduce_pairs(int8x8_t m2, int8x8_t m1, int8x8_t c0, int8x8_t p1, int8x8_t p2) {
    int16x8_t t = vaddl_s8(m2, p2);
    t = vmlal_s8(t, c0, vdup_n_s8(6));
    t = vmlal_s8(t, m1, vdup_n_s8(4));
    return vmlal_s8(t, p1, vdup_n_s8(4));
}

// Reads bytes -4 .. 2 * ceil8(...) + 3 of a row (the last pair loaded by the
// third load is unused).
decl_chroma_reduce_h_fn(chroma_reduce_h_neon) {
    const int n = (int)ceil8(2u * (unsigned)(pairs >> 1));
    for (int r = 0; r < rows; ++r, src += src_stride, dst += n) {
        int8_t *p = src;
        pad_pairs_mirror(p, pairs);
        int i = 0;
        for (; i + 16 <= n; i += 16) {
            const uint16_t *u = (const uint16_t *)(p + 2 * i);
            const uint16x8x2_t a = vld2q_u16(u - 2), b = vld2q_u16(u), c = vld2q_u16(u + 2);
            const int8x16_t m2 = vreinterpretq_s8_u16(a.val[0]), m1 = vreinterpretq_s8_u16(a.val[1]);
            const int8x16_t c0 = vreinterpretq_s8_u16(b.val[0]), p1 = vreinterpretq_s8_u16(b.val[1]);
            const int8x16_t p2 = vreinterpretq_s8_u16(c.val[0]);
            vst1q_s16(dst + i, reduce_pairs(vget_low_s8(m2), vget_low_s8(m1), vget_low_s8(c0),
                                            vget_low_s8(p1), vget_low_s8(p2)));
            vst1q_s16(dst + i + 8, reduce_pairs(vget_high_s8(m2), vget_high_s8(m1), vget_high_s8(c0),
                                                vget_high_s8(p1), vget_high_s8(p2)));
        }
        if (i < n) {
            const uint16_t *u = (const uint16_t *)(p + 2 * i);
            const uint16x4x2_t a = vld2_u16(u - 2), b = vld2_u16(u), c = vld2_u16(u + 2);
            vst1q_s16(dst + i, reduce_pairs(vreinterpret_s8_u16(a.val[0]), vreinterpret_s8_u16(a.val[1]),
                                            vreinterpret_s8_u16(b.val[0]), vreinterpret_s8_u16(b.val[1]),
                                            vreinterpret_s8_u16(c.val[0])));
        }
    }
}

decl_chroma_reduce_v_fn(chroma_reduce_v_neon) {
    const int n = (int)ceil8((unsigned)values), first = reduce_v_first(y0);
    for (int j = y0; j < y1; ++j) {
        const int16_t *c = src + (2 * j - first) * n;
        int8_t *d = dst + j * dst_stride;
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
            vst1_s8(d + i, vrshrn_n_s16(s, 8));
        }
    }
}

// vld2 splits the pairs into their components (a, b, c: the source from
// pairs k-1, k and k+1 on) and vst4 writes, per source pair k, output pair
// 2k = a + 6b + c then 2k+1 = 4b + 4c of each component: 8 source pairs in,
// 16 pairs out.
static inline void expand_pairs(int16_t *d, int8x8x2_t a, int8x8x2_t b, int8x8x2_t c, int8x8_t six) {
    int16x8x4_t out;
    for (int i = 0; i < 2; ++i) {
        out.val[i] = vmlal_s8(vaddl_s8(a.val[i], c.val[i]), b.val[i], six);
        out.val[2 + i] = vshlq_n_s16(vaddl_s8(b.val[i], c.val[i]), 2);
    }
    vst4q_s16(d, out);
}

static inline int8x8x2_t low_half(int8x16x2_t v) { return {{vget_low_s8(v.val[0]), vget_low_s8(v.val[1])}}; }
static inline int8x8x2_t high_half(int8x16x2_t v) { return {{vget_high_s8(v.val[0]), vget_high_s8(v.val[1])}}; }

// 16 source pairs per step, a last step of 8.
decl_chroma_expand_h_fn(chroma_expand_h_neon) {
    const int pitch = (int)ceil8(2u * (unsigned)dst_pairs);
    const int kmax = (int)ceil8((unsigned)src_pairs);
    const int e = 2 * src_pairs;
    const int8x8_t six = vdup_n_s8(6);
    for (int j = 0; j < rows; ++j, src += src_stride, dst += pitch) {
        int8_t *q = src;
        pad_pairs_repeat(q, src_pairs);
        const int8_t *s = q, *end = q + 2 * (kmax & ~15);
        int16_t *d = dst;
        for (; s != end; s += 32, d += 64) {
            const int8x16x2_t a = vld2q_s8(s - 2), b = vld2q_s8(s), c = vld2q_s8(s + 2);
            expand_pairs(d, low_half(a), low_half(b), low_half(c), six);
            expand_pairs(d + 32, high_half(a), high_half(b), high_half(c), six);
        }
        if (kmax & 8) expand_pairs(d, vld2_s8(s - 2), vld2_s8(s), vld2_s8(s + 2), six);
        odd_last_pair(dst, dst_pairs, q, e);
    }
}

// band = g - ((E + 32) >> 6): E fits 16 bits, so the rounding shift is exact.
static inline void band_row8(int16_t *b, const int8_t *g, int16x8_t e) {
    vst1q_s16(b, vsubq_s16(vmovl_s8(vld1_s8(g)), vrshrq_n_s16(e, 6)));
}

// Output rows 2j and 2j+1 share scratch rows j and j+1, so they are formed
// together: E[2j] = h[j-1] + 6 h[j] + h[j+1], E[2j+1] = 4 h[j] + 4 h[j+1]
// (rows clamped at the ends).  A range's odd first row, a lone last row and
// an odd row count's last row (7 h[last]) go on their own by their taps.
decl_chroma_expand_band_fn(chroma_expand_band_neon) {
    const int n = (int)ceil8((unsigned)values);
    const int hrows = rows >> 1, last = hrows - 1, first = expand_v_first(y0);
    const int16x8_t six = vdupq_n_s16(6), zero = vdupq_n_s16(0);
    const auto row = [&](int y) {
        int16_t *b = band + y * band_stride;
        if (zero_edges && chroma_zero_row(y, rows)) {
            for (int i = 0; i < n; i += 8) vst1q_s16(b + i, zero);
            return;
        }
        const ExpandTaps t = expand_taps(y, hrows);
        const int16_t *ha = h + (t.ra - first) * n, *hb = h + (t.rb - first) * n, *hc = h + (t.rc - first) * n;
        const int8_t *gr = g + y * g_stride;
        for (int i = 0; i < n; i += 8)
            band_row8(b + i, gr + i, vmlaq_n_s16(vmlaq_n_s16(vmulq_n_s16(vld1q_s16(ha + i), t.wa), vld1q_s16(hb + i), t.wb),
                                                 vld1q_s16(hc + i), t.wc));
    };
    int y = y0;
    if (y & 1) row(y++);
    for (; y + 1 < y1 && (y >> 1) <= last; y += 2) {
        const int j = y >> 1;
        int16_t *b0 = band + y * band_stride, *b1 = b0 + band_stride;
        const int8_t *g0 = g + y * g_stride, *g1 = g0 + g_stride;
        const bool z0 = zero_edges && chroma_zero_row(y, rows), z1 = zero_edges && chroma_zero_row(y + 1, rows);
        const int16_t *hm = h + ((j > 0 ? j - 1 : 0) - first) * n, *hc = h + (j - first) * n;
        const int16_t *hp = h + ((j < last ? j + 1 : last) - first) * n;
        if (z0 || z1) { // edge rows: each row on its own
            for (int i = 0; i < n; i += 8) {
                const int16x8_t m = vld1q_s16(hm + i), c = vld1q_s16(hc + i), p = vld1q_s16(hp + i);
                if (z0) vst1q_s16(b0 + i, zero);
                else band_row8(b0 + i, g0 + i, vmlaq_s16(vaddq_s16(m, p), c, six));
                if (z1) vst1q_s16(b1 + i, zero);
                else band_row8(b1 + i, g1 + i, vshlq_n_s16(vaddq_s16(c, p), 2));
            }
            continue;
        }
        for (int i = 0; i < n; i += 8) {
            const int16x8_t m = vld1q_s16(hm + i), c = vld1q_s16(hc + i), p = vld1q_s16(hp + i);
            band_row8(b0 + i, g0 + i, vmlaq_s16(vaddq_s16(m, p), c, six));
            band_row8(b1 + i, g1 + i, vshlq_n_s16(vaddq_s16(c, p), 2));
        }
    }
    if (y < y1) row(y);
}

// A row's last partial vector overlaps the previous one (same values again).
decl_chroma_residual_fn(chroma_residual_neon) {
    for (int y = 0; y < rows; ++y) {
        int16_t *d = dst + y * dst_stride;
        const int8_t *s = src + y * src_stride;
        int i = 0;
        for (; i + 16 <= values; i += 16) {
            const int8x16_t v = vld1q_s8(s + i);
            vst1q_s16(d + i, vmovl_s8(vget_low_s8(v)));
            vst1q_s16(d + i + 8, vmovl_s8(vget_high_s8(v)));
        }
        if (i + 8 <= values) {
            vst1q_s16(d + i, vmovl_s8(vld1_s8(s + i)));
            i += 8;
        }
        if (i == values) continue;
        if (values >= 8)
            vst1q_s16(d + values - 8, vmovl_s8(vld1_s8(s + values - 8)));
        else
            for (; i < values; ++i) d[i] = s[i];
    }
}
