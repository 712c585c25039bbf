// NEON kernels of the luma blend and collapse.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/fusion_neon.h"
#include "fusion/pyramid_rows.h"

// Blend of 8 columns from the three bands and their 8-bit weights.
static inline int16x8_t blend_columns(const int16_t *b0, const int16_t *b1, const int16_t *b2, uint8x8_t w0,
                                      uint8x8_t w1, uint8x8_t w2) {
    return blend3_s16(vld1q_s16(b0), vld1q_s16(b1), vld1q_s16(b2), vreinterpretq_s16_u16(vmovl_u8(w0)),
                      vreinterpretq_s16_u16(vmovl_u8(w1)), vreinterpretq_s16_u16(vmovl_u8(w2)));
}

// 16 columns per step (one load per weight row), a last step of 8.  The
// row pointers walk with the columns, so each access post-increments its
// own register instead of forming an address from a shared index.
decl_band_blend_fn(band_blend_neon) {
    for (int y = 0; y < h; ++y) {
        int16_t *d = b0;
        const int16_t *a1 = b1, *a2 = b2;
        const uint8_t *k0p = w0, *k1p = w1, *k2p = w2;
        for (int n = w8 >> 4; n > 0; --n) {
            const uint8x16_t k0 = vld1q_u8(k0p), k1 = vld1q_u8(k1p), k2 = vld1q_u8(k2p);
            const int16x8_t lo = blend_columns(d, a1, a2, vget_low_u8(k0), vget_low_u8(k1), vget_low_u8(k2));
            const int16x8_t hi = blend_columns(d + 8, a1 + 8, a2 + 8, vget_high_u8(k0), vget_high_u8(k1),
                                               vget_high_u8(k2));
            vst1q_s16(d, lo);
            vst1q_s16(d + 8, hi);
            d += 16;
            a1 += 16;
            a2 += 16;
            k0p += 16;
            k1p += 16;
            k2p += 16;
        }
        if (w8 & 8) vst1q_s16(d, blend_columns(d, a1, a2, vld1_u8(k0p), vld1_u8(k1p), vld1_u8(k2p)));
        b0 += bstride;
        b1 += bstride;
        b2 += bstride;
        w0 += wstride;
        w1 += wstride;
        w2 += wstride;
    }
}

// 8 source elements give 8 even and 8 odd outputs, interleaved by vst2; the
// 16-bit lanes wrap as the scalar sums do.  a, b, c: the source from k-1,
// k and k+1 on.
static inline void collapse_expand8(int16_t *d, int16x8_t a, int16x8_t b, int16x8_t c, int16x8_t six) {
    int16x8x2_t out;
    out.val[0] = vmlaq_s16(vaddq_s16(a, c), b, six); // q[k-1] + 6 q[k] + q[k+1]
    out.val[1] = vshlq_n_s16(vaddq_s16(b, c), 2);    // 4 q[k] + 4 q[k+1]
    vst2q_s16(d, out);
}

// Each step loads the vector after its own and shifts b and c out of the
// two; the last step, whose next vector would lie past q[ceil8(w)], loads
// its three vectors directly.
decl_collapse_expand_h_fn(collapse_expand_h_neon) {
    const int n = (int)ceil8((unsigned)w);
    const ptrdiff_t pitch = ceil8((unsigned)dst_w);
    const int16x8_t six = vdupq_n_s16(6);
    for (int j = 0; j < h; ++j, src += src_stride, dst += pitch) {
        int16_t *q = src;
        pad_repeat(q, w);
        int k = 0;
        int16x8_t x0 = vld1q_s16(q - 1);
        for (; k + 8 < n; k += 8) {
            const int16x8_t x1 = vld1q_s16(q + k + 7);
            collapse_expand8(dst + 2 * k, x0, vextq_s16(x0, x1, 1), vextq_s16(x0, x1, 2), six);
            x0 = x1;
        }
        if (k < n) collapse_expand8(dst + 2 * k, x0, vld1q_s16(q + k), vld1q_s16(q + k + 1), six);
        if (dst_w & 1) dst[dst_w - 1] = (int16_t)(uint16_t)(7 * q[w - 1]);
    }
}

// l += (E + 32) >> 6: vrsra rounds with the carry beyond 16 bits, as the
// scalar shift of the widened E does; the accumulation wraps.  E in 16-bit
// wrap-around from the scratch rows, whose bit pattern is that of the signed
// sums: even rows m + 6 c + p, odd rows 4 c + 4 p.
static inline void collapse_add8(int16_t *d, uint16x8_t e) {
    vst1q_s16(d, vrsraq_n_s16(vld1q_s16(d), vreinterpretq_s16_u16(e), 6));
}
static inline uint16x8_t expand_even(uint16x8_t m, uint16x8_t c, uint16x8_t p, uint16x8_t six) {
    return vmlaq_u16(vaddq_u16(m, p), c, six);
}
static inline uint16x8_t expand_odd(uint16x8_t c, uint16x8_t p) { return vshlq_n_u16(vaddq_u16(c, p), 2); }

// Rows 2j and 2j+1 share their loads; the edges repeat the first and last
// scratch rows (m = c at the top, p = c at the bottom).
decl_collapse_add_v_fn(collapse_add_v_neon) {
    const int w8 = (int)ceil8((unsigned)w), last = (h >> 1) - 1, first = expand_v_first(y0);
    const ptrdiff_t s = w8;
    const uint16_t *hu = (const uint16_t *)hs;
    const uint16x8_t six = vdupq_n_u16(6); // a vector: the by-scalar form reloads its lane every step
    for (int y = y0; y < y1;) {
        const int j = y >> 1;
        int16_t *l0 = l + y * l_stride;
        if (j > last) { // odd h: one more row, 7 h[last]
            const uint16_t *c = hu + (last - first) * s;
            for (int x = 0; x < w8; x += 8) collapse_add8(l0 + x, vmulq_n_u16(vld1q_u16(c + x), 7));
            break;
        }
        const uint16_t *c = hu + (j - first) * s;
        const uint16_t *m = j > 0 ? c - s : c, *p = j < last ? c + s : c;
        if (y & 1) {
            for (int x = 0; x < w8; x += 8) collapse_add8(l0 + x, expand_odd(vld1q_u16(c + x), vld1q_u16(p + x)));
            ++y;
            continue;
        }
        if (y + 1 == y1) {
            for (int x = 0; x < w8; x += 8)
                collapse_add8(l0 + x, expand_even(vld1q_u16(m + x), vld1q_u16(c + x), vld1q_u16(p + x), six));
            break;
        }
        // The pointers walk with the columns: each access post-increments
        // its own register.
        int16_t *l1 = l0 + l_stride;
        for (int n = w8 >> 3; n > 0; --n) {
            const uint16x8_t cv = vld1q_u16(c), pv = vld1q_u16(p);
            const uint16x8_t e0 = expand_even(vld1q_u16(m), cv, pv, six), e1 = expand_odd(cv, pv);
            collapse_add8(l0, e0);
            collapse_add8(l1, e1);
            l0 += 8;
            l1 += 8;
            m += 8;
            c += 8;
            p += 8;
        }
        y += 2;
    }
}
