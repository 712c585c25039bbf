// NEON kernels of the weight map, its normalisation and its pyramid.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/fusion_neon.h"
#include "fusion/pyramid_rows.h"
#include "varo_hdr.h"

// 256-entry byte lookup from eight 32-byte tables: vtbl gives 0 and vtbx
// keeps the lane for indices beyond 31, and every step moves the index down
// by 32 (wrapping the done lanes out of range).
namespace {
struct Lut256 {
    uint8x8x4_t part[8];
    explicit Lut256(const uint8_t *t) {
        for (int i = 0; i < 8; ++i)
            for (int j = 0; j < 4; ++j) part[i].val[j] = vld1_u8(t + 32 * i + 8 * j);
    }
    uint8x8_t operator()(uint8x8_t idx) const {
        const uint8x8_t k32 = vdup_n_u8(32);
        uint8x8_t r = vtbl4_u8(part[0], idx);
        for (int i = 1; i < 8; ++i) {
            idx = vsub_u8(idx, k32);
            r = vtbx4_u8(r, part[i], idx);
        }
        return r;
    }
};
} // namespace

decl_weight_well_exposed_fn(weight_well_exposed_neon) {
    const Lut256 lut(curve);
    const int n = width & ~7;
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < n; x += 8) {
            uint8x8_t t = lut(vld1_u8(luma + x));
            vst1_u8(dst + x, vqmovn_u16(vmull_u8(t, vld1_u8(mask + x)))); // min(255, t * m)
        }
        mask += n;
        luma += n + (stride - width);
        dst += n + (stride - width);
    }
}

// (w * q + 128) >> 8 kept to 16 bits, then saturated to a byte.
static inline uint8x8_t scale_weight(uint8x8_t w, uint16x8_t q) {
    uint16x8_t w16 = vmovl_u8(w);
    uint16x4_t lo = vrshrn_n_u32(vmull_u16(vget_low_u16(w16), vget_low_u16(q)), 8);
    uint16x4_t hi = vrshrn_n_u32(vmull_u16(vget_high_u16(w16), vget_high_u16(q)), 8);
    return vqmovn_u16(vcombine_u16(lo, hi));
}

decl_weight_normalize_fn(weight_normalize_neon) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < n; x += 8) {
            uint8x8_t a = vld1_u8(w0 + x), b = vld1_u8(w1 + x), c = vld1_u8(w2 + x);
            uint16_t s[8];
            vst1q_u16(s, vaddw_u8(vaddl_u8(a, b), c));
            // The reciprocal table has no vector gather: one lane at a time.
            uint16x8_t q = vdupq_n_u16(0);
            q = vld1q_lane_u16(&weight_int_tab[s[0]], q, 0);
            q = vld1q_lane_u16(&weight_int_tab[s[1]], q, 1);
            q = vld1q_lane_u16(&weight_int_tab[s[2]], q, 2);
            q = vld1q_lane_u16(&weight_int_tab[s[3]], q, 3);
            q = vld1q_lane_u16(&weight_int_tab[s[4]], q, 4);
            q = vld1q_lane_u16(&weight_int_tab[s[5]], q, 5);
            q = vld1q_lane_u16(&weight_int_tab[s[6]], q, 6);
            q = vld1q_lane_u16(&weight_int_tab[s[7]], q, 7);
            vst1_u8(w0 + x, scale_weight(a, q));
            vst1_u8(w1 + x, scale_weight(b, q));
            vst1_u8(w2 + x, scale_weight(c, q));
        }
        w0 += next;
        w1 += next;
        w2 += next;
    }
}

// min(255, (sum + 2048) >> 12): the saturating narrows give the clamp.
static inline uint8x8_t weight_out(uint32x4_t lo, uint32x4_t hi) {
    return vqmovn_u16(vcombine_u16(vqrshrn_n_u32(lo, 12), vqrshrn_n_u32(hi, 12)));
}

decl_reduce_v_fn(weight_reduce_v_neon) {
    const ptrdiff_t s = out_w;
    const int first = reduce_v_first(y0);
    for (int x = 0; y0 == 0 && x < out_w; x += 8) {
        uint16x8_t t0 = vld1q_u16(t + x), t1 = vld1q_u16(t + s + x), t2 = vld1q_u16(t + 2 * s + x);
        // 54 t0 + 8 t1 + 2 t2
        uint32x4_t lo = vmull_n_u16(vget_low_u16(t0), 54);
        uint32x4_t hi = vmull_n_u16(vget_high_u16(t0), 54);
        lo = vmlal_n_u16(lo, vget_low_u16(t1), 8);
        hi = vmlal_n_u16(hi, vget_high_u16(t1), 8);
        lo = vmlal_n_u16(lo, vget_low_u16(t2), 2);
        hi = vmlal_n_u16(hi, vget_high_u16(t2), 2);
        vst1_u8(dst + x, weight_out(lo, hi));
    }
    for (int k = y0 > 1 ? y0 : 1; k < y1; ++k) {
        const uint16_t *c = t + (2 * k - first) * s;
        uint8_t *d = dst + k * dst_stride;
        const bool bottom = k == out_h - 1;
        for (int x = 0; x < out_w; x += 8) {
            uint16x8_t m2 = vld1q_u16(c - 2 * s + x), m1 = vld1q_u16(c - s + x);
            uint16x8_t c0 = vld1q_u16(c + x), p1 = vld1q_u16(c + s + x);
            // Bottom row: t[2k] stands in for t[2k+2], i.e. 55 t[2k].
            uint16x8_t p2 = bottom ? vdupq_n_u16(0) : vld1q_u16(c + 2 * s + x);
            const uint16_t cw = bottom ? 55 : 54;
            uint16x8_t s4 = vaddq_u16(m1, p1); // at most 32640
            uint32x4_t lo = vaddl_u16(vget_low_u16(m2), vget_low_u16(p2));
            uint32x4_t hi = vaddl_u16(vget_high_u16(m2), vget_high_u16(p2));
            lo = vmlal_n_u16(lo, vget_low_u16(s4), 4);
            hi = vmlal_n_u16(hi, vget_high_u16(s4), 4);
            lo = vmlal_n_u16(lo, vget_low_u16(c0), cw);
            hi = vmlal_n_u16(hi, vget_high_u16(c0), cw);
            vst1_u8(d + x, weight_out(lo, hi));
        }
    }
}
