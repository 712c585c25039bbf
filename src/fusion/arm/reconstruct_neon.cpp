// NEON kernels of the luma blend and collapse.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/expand_rows_neon.h"
#include "fusion/arm/fusion_neon.h"
#include "fusion/pyramid_rows.h"

static inline int16x8_t widen_weight(const uint8_t *w) { return vreinterpretq_s16_u16(vmovl_u8(vld1_u8(w))); }

// vrshrn forms (a + 128) >> 8 arithmetically and keeps the low 16 bits, as
// the scalar (int16_t) conversion does.
decl_band_blend_fn(band_blend_neon) {
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w8; x += 8) {
            int16x8_t a0 = vld1q_s16(b0 + x), a1 = vld1q_s16(b1 + x), a2 = vld1q_s16(b2 + x);
            int16x8_t k0 = widen_weight(w0 + x), k1 = widen_weight(w1 + x), k2 = widen_weight(w2 + x);
            int32x4_t lo = vmull_s16(vget_low_s16(a0), vget_low_s16(k0));
            int32x4_t hi = vmull_s16(vget_high_s16(a0), vget_high_s16(k0));
            lo = vmlal_s16(lo, vget_low_s16(a1), vget_low_s16(k1));
            hi = vmlal_s16(hi, vget_high_s16(a1), vget_high_s16(k1));
            lo = vmlal_s16(lo, vget_low_s16(a2), vget_low_s16(k2));
            hi = vmlal_s16(hi, vget_high_s16(a2), vget_high_s16(k2));
            vst1q_s16(b0 + x, vcombine_s16(vrshrn_n_s32(lo, 8), vrshrn_n_s32(hi, 8)));
        }
        b0 += bstride;
        b1 += bstride;
        b2 += bstride;
        w0 += wstride;
        w1 += wstride;
        w2 += wstride;
    }
}

// 8 source elements give 8 even and 8 odd outputs, interleaved by vst2; the
// 16-bit lanes wrap as the scalar sums do.
decl_collapse_expand_h_fn(collapse_expand_h_neon) {
    const int n = (int)ceil8((unsigned)w);
    const ptrdiff_t pitch = ceil8((unsigned)dst_w);
    for (int j = 0; j < h; ++j, src += src_stride, dst += pitch) {
        int16_t *q = src;
        pad_repeat(q, w);
        for (int k = 0; k < n; k += 8) {
            int16x8_t a = vld1q_s16(q + k - 1), b = vld1q_s16(q + k), c = vld1q_s16(q + k + 1);
            int16x8x2_t out;
            out.val[0] = vmlaq_n_s16(vaddq_s16(a, c), b, 6);   // q[k-1] + 6 q[k] + q[k+1]
            out.val[1] = vshlq_n_s16(vaddq_s16(b, c), 2);      // 4 q[k] + 4 q[k+1]
            vst2q_s16(dst + 2 * k, out);
        }
        if (dst_w & 1) dst[dst_w - 1] = (int16_t)(uint16_t)(7 * q[w - 1]);
    }
}

// vrsra adds (E + 32) >> 6 with the rounding carried beyond 16 bits, as the
// scalar shift of the widened E does; the accumulation wraps.
decl_collapse_add_v_fn(collapse_add_v_neon) {
    expand_rows_neon((const uint16_t *)hs, (int)ceil8((unsigned)w), h, y0, y1, [&](int y, int x, uint16x8_t e) {
        int16_t *d = l + y * l_stride + x;
        vst1q_s16(d, vrsraq_n_s16(vld1q_s16(d), vreinterpretq_s16_u16(e), 6));
    });
}
