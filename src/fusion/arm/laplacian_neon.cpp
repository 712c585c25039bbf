// NEON kernels of the luma Laplacian pyramid.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/expand_rows_neon.h"
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
        const uint16_t cw = bottom ? 7 : 6;
        for (int x = 0; x < out_w; x += 8) {
            uint16x8_t m2 = vld1q_u16(c - 2 * s + x), m1 = vld1q_u16(c - s + x);
            uint16x8_t c0 = vld1q_u16(c + x), p1 = vld1q_u16(c + s + x);
            // Bottom row: t[2k] stands in for t[2k+2], i.e. 7 t[2k].
            uint16x8_t p2 = bottom ? vdupq_n_u16(0) : vld1q_u16(c + 2 * s + x);
            uint16x8_t sum = vaddq_u16(m2, p2);
            sum = vaddq_u16(sum, vshlq_n_u16(vaddq_u16(m1, p1), 2));
            sum = vmlaq_n_u16(sum, c0, cw);
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

decl_image_band_v_fn(image_band_v_neon) {
    expand_rows_neon(hs, (int)ceil8((unsigned)w), h, y0, y1, [&](int y, int x, uint16x8_t e) {
        // E <= 16320: the unsigned rounding shift is exact, and g - e wraps to
        // the signed difference.
        uint16x8_t gv = vmovl_u8(vld1_u8(g + y * g_stride + x));
        vst1q_s16(band + y * band_stride + x, vreinterpretq_s16_u16(vsubq_u16(gv, vrshrq_n_u16(e, 6))));
    });
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
