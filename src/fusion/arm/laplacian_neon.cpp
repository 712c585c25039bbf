// NEON kernels of the luma Laplacian pyramid.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/fusion_neon.h"
#include "fusion/pyramid_rows.h"

// All sums fit 16 bits (at most 65280), and the rounding narrow forms
// (s + 128) >> 8 without losing the carry, as the scalar int arithmetic does.
decl_reduce_v_fn(image_reduce_v_neon) {
    const ptrdiff_t s = out_w;
    const int first = reduce_v_first(y0);
    if (y0 == 0)
        for (int x = 0; x < out_w; x += 8) {
            uint16x8_t t0 = vld1q_u16(t + x), t1 = vld1q_u16(t + s + x), t2 = vld1q_u16(t + 2 * s + x);
            uint16x8_t sum = vmulq_n_u16(t0, 6);                // 6 t0
            sum = vaddq_u16(sum, vshlq_n_u16(t1, 3));           // + 8 t1
            sum = vaddq_u16(sum, vshlq_n_u16(t2, 1));           // + 2 t2
            vst1_u8(dst + x, vrshrn_n_u16(sum, 8));
        }
    for (int k = y0 > 1 ? y0 : 1; k < y1; ++k) {
        const uint16_t *c = t + (2 * k - first) * s;
        uint8_t *d = dst + k * dst_stride;
        const bool bottom = k == out_h - 1;
        const uint16x8_t cw = vdupq_n_u16(bottom ? 7 : 6); // a vector: the by-scalar form reloads its lane every step
        // The pointers walk with the columns: each load post-increments its own register.
        const uint16_t *m2p = c - 2 * s, *m1p = c - s, *p1p = c + s, *p2p = bottom ? c : c + 2 * s;
        for (int x = 0; x < out_w; x += 8, m2p += 8, m1p += 8, c += 8, p1p += 8, p2p += 8) {
            uint16x8_t m2 = vld1q_u16(m2p), m1 = vld1q_u16(m1p);
            uint16x8_t c0 = vld1q_u16(c), p1 = vld1q_u16(p1p);
            // Bottom row: t[2k] stands in for t[2k+2], i.e. 7 t[2k].
            uint16x8_t p2 = bottom ? vdupq_n_u16(0) : vld1q_u16(p2p);
            uint16x8_t sum = vaddq_u16(m2, p2);
            sum = vaddq_u16(sum, vshlq_n_u16(vaddq_u16(m1, p1), 2));
            sum = vmlaq_u16(sum, c0, cw);
            vst1_u8(d + x, vrshrn_n_u16(sum, 8));
        }
    }
}

// 16 source pixels give 16 even and 16 odd outputs, interleaved by vst2.
// a, b, c: the source from k-1, k and k+1 on.
static inline void image_expand16(uint16_t *d, uint8x16_t a, uint8x16_t b, uint8x16_t c, uint8x8_t six) {
    uint16x8x2_t lo, hi;
    lo.val[0] = vmlal_u8(vaddl_u8(vget_low_u8(a), vget_low_u8(c)), vget_low_u8(b), six);
    lo.val[1] = vshlq_n_u16(vaddl_u8(vget_low_u8(b), vget_low_u8(c)), 2);
    hi.val[0] = vmlal_u8(vaddl_u8(vget_high_u8(a), vget_high_u8(c)), vget_high_u8(b), six);
    hi.val[1] = vshlq_n_u16(vaddl_u8(vget_high_u8(b), vget_high_u8(c)), 2);
    vst2q_u16(d, lo);
    vst2q_u16(d + 16, hi);
}

// Each step loads the vector after its own and shifts b and c out of the
// two; the last step, whose next vector would lie past q[ceil16(w)], loads
// its three vectors directly.
decl_image_expand_h_fn(image_expand_h_neon) {
    const int n = (int)ceil16((unsigned)w);
    const ptrdiff_t pitch = ceil8((unsigned)dst_w);
    const uint8x8_t six = vdup_n_u8(6);
    for (int j = 0; j < h; ++j, src += src_stride, dst += pitch) {
        uint8_t *q = src;
        pad_repeat(q, w);
        int k = 0;
        uint8x16_t x0 = vld1q_u8(q - 1);
        for (; k + 16 < n; k += 16) {
            const uint8x16_t x1 = vld1q_u8(q + k + 15);
            image_expand16(dst + 2 * k, x0, vextq_u8(x0, x1, 1), vextq_u8(x0, x1, 2), six);
            x0 = x1;
        }
        if (k < n) image_expand16(dst + 2 * k, x0, vld1q_u8(q + k), vld1q_u8(q + k + 1), six);
        if (dst_w & 1) dst[dst_w - 1] = (uint16_t)(7 * q[w - 1]);
    }
}

// band = g - ((E + 32) >> 6) with E <= 16320 (scratch values <= 2040): the
// rounded E fits a byte, so vrshrn narrows it exactly and vsubl widens the
// difference in one step.  Odd rows: (4 (c + p) + 32) >> 6 == (c + p + 8) >> 4.
static inline void band8(int16_t *d, uint8x8_t g, uint8x8_t e) {
    vst1q_s16(d, vreinterpretq_s16_u16(vsubl_u8(g, e)));
}
// Even rows m + 6 c + p, odd rows 4 c + 4 p, rounded to bytes.
static inline uint8x8_t band_even(uint16x8_t m, uint16x8_t c, uint16x8_t p, uint16x8_t six) {
    return vrshrn_n_u16(vmlaq_u16(vaddq_u16(m, p), c, six), 6);
}
static inline uint8x8_t band_odd(uint16x8_t c, uint16x8_t p) { return vrshrn_n_u16(vaddq_u16(c, p), 4); }

// Both rows of a pair from one load of their scratch rows (the band stores
// may alias the scratch as far as the compiler knows).
static inline void band_pair8(int16_t *b0, int16_t *b1, uint8x8_t g0, uint8x8_t g1, const uint16_t *m,
                              const uint16_t *c, const uint16_t *p, uint16x8_t six) {
    const uint16x8_t cv = vld1q_u16(c), pv = vld1q_u16(p);
    const uint8x8_t e0 = band_even(vld1q_u16(m), cv, pv, six), e1 = band_odd(cv, pv);
    band8(b0, g0, e0);
    band8(b1, g1, e1);
}

// Rows 2j and 2j+1 share their loads; the edges
// repeat the first and last scratch rows (m = c at the top, p = c at the
// bottom).
decl_image_band_v_fn(image_band_v_neon) {
    const int w8 = (int)ceil8((unsigned)w), last = (h >> 1) - 1, first = expand_v_first(y0);
    const ptrdiff_t s = w8;
    const uint16x8_t six = vdupq_n_u16(6);
    for (int y = y0; y < y1;) {
        const int j = y >> 1;
        const uint8_t *g0 = g + y * g_stride;
        int16_t *b0 = band + y * band_stride;
        if (j > last) { // odd h: one more row, 7 h[last]
            const uint16_t *c = hs + (last - first) * s;
            for (int x = 0; x < w8; x += 8)
                band8(b0 + x, vld1_u8(g0 + x), vrshrn_n_u16(vmulq_n_u16(vld1q_u16(c + x), 7), 6));
            break;
        }
        const uint16_t *c = hs + (j - first) * s;
        const uint16_t *m = j > 0 ? c - s : c, *p = j < last ? c + s : c;
        if (y & 1) {
            for (int x = 0; x < w8; x += 8) band8(b0 + x, vld1_u8(g0 + x), band_odd(vld1q_u16(c + x), vld1q_u16(p + x)));
            ++y;
            continue;
        }
        if (y + 1 == y1) {
            for (int x = 0; x < w8; x += 8)
                band8(b0 + x, vld1_u8(g0 + x),
                      band_even(vld1q_u16(m + x), vld1q_u16(c + x), vld1q_u16(p + x), six));
            break;
        }
        // The pointers walk with the columns: each access post-increments
        // its own register.
        const uint8_t *g1 = g0 + g_stride;
        int16_t *b1 = b0 + band_stride;
        for (int n = w8 >> 3; n > 0; --n) {
            band_pair8(b0, b1, vld1_u8(g0), vld1_u8(g1), m, c, p, six);
            g0 += 8;
            g1 += 8;
            b0 += 8;
            b1 += 8;
            m += 8;
            c += 8;
            p += 8;
        }
        y += 2;
    }
}

// A row's last partial vector overlaps the previous one (same values again).
decl_residual_copy_fn(residual_copy_neon) {
    for (int y = 0; y < h; ++y, src += stride, dst += stride) {
        int x = 0;
        for (; x + 16 <= w; x += 16) {
            const uint8x16_t v = vld1q_u8(src + x);
            vst1q_s16(dst + x, vreinterpretq_s16_u16(vmovl_u8(vget_low_u8(v))));
            vst1q_s16(dst + x + 8, vreinterpretq_s16_u16(vmovl_u8(vget_high_u8(v))));
        }
        if (x + 8 <= w) {
            vst1q_s16(dst + x, vreinterpretq_s16_u16(vmovl_u8(vld1_u8(src + x))));
            x += 8;
        }
        if (x == w) continue;
        if (w >= 8)
            vst1q_s16(dst + w - 8, vreinterpretq_s16_u16(vmovl_u8(vld1_u8(src + w - 8))));
        else
            for (; x < w; ++x) dst[x] = src[x];
    }
}
