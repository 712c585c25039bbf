// NEON kernels of the weight map, its normalisation and its pyramid.
#include "common/arith.h"
#include "common/neon.h"
#include "fusion/arm/fusion_neon.h"
#include "fusion/pyramid_rows.h"
#include "fusion/weight_curve.h"
#include "varo_hdr.h"

namespace {

// Byte lookup in Parts consecutive 32-entry tables from part `first` on:
// vtbx keeps the lane (the fill value) for indices past 31, and each step
// moves the index down by 32, so a lane matches only its own part (an index
// below the first part wraps to 256 - 32 * k and never returns into 0..31
// within the 8 - first parts that follow).
template <int Parts, bool Fold>
struct CurveLut {
    uint8x8x4_t part[Parts];
    uint8x8_t base, fill;
    CurveLut(const uint8_t *curve, const CurveParts &cp) {
        for (int i = 0; i < Parts; ++i)
            for (int j = 0; j < 4; ++j) part[i].val[j] = vld1_u8(curve + 32 * (cp.first + i) + 8 * j);
        base = vdup_n_u8((uint8_t)(32 * cp.first));
        fill = vdup_n_u8(cp.fill);
    }
    uint8x8_t operator()(uint8x8_t y) const {
        const uint8x8_t k32 = vdup_n_u8(32);
        uint8x8_t idx = vsub_u8(Fold ? vmin_u8(y, vmvn_u8(y)) : y, base);
        // Folded indices are all below 128: the four parts cover them.
        uint8x8_t r = Fold ? vtbl4_u8(part[0], idx) : vtbx4_u8(fill, part[0], idx);
        for (int i = 1; i < Parts; ++i) {
            idx = vsub_u8(idx, k32);
            r = vtbx4_u8(r, part[i], idx);
        }
        return r;
    }
};

// One frame's weights of 16 and of 8 pixels: min(255, curve[luma] * mask),
// or without a mask (every byte 1) the curve values themselves.
template <bool Masked, class Lut> inline uint8x16_t frame_weights16(const Lut &lut, const uint8_t *luma, const uint8_t *mask) {
    const uint8x16_t y = vld1q_u8(luma);
    const uint8x8_t lo = lut(vget_low_u8(y)), hi = lut(vget_high_u8(y));
    if (!Masked) return vcombine_u8(lo, hi);
    const uint8x16_t m = vld1q_u8(mask);
    return vcombine_u8(vqmovn_u16(vmull_u8(lo, vget_low_u8(m))), vqmovn_u16(vmull_u8(hi, vget_high_u8(m))));
}
template <bool Masked, class Lut> inline uint8x8_t frame_weights8(const Lut &lut, const uint8_t *luma, const uint8_t *mask) {
    const uint8x8_t c = lut(vld1_u8(luma));
    return Masked ? vqmovn_u16(vmull_u8(c, vld1_u8(mask))) : c;
}

// One frame's weights of len (a multiple of 8) pixels into w.
template <bool Masked, class Lut>
inline void weigh_run(uint8_t *w, const Lut &lut, const uint8_t *luma, const uint8_t *mask, int len) {
    int x = 0;
    for (; x + 16 <= len; x += 16) vst1q_u8(w + x, frame_weights16<Masked>(lut, luma + x, mask + x));
    if (x < len) vst1_u8(w + x, frame_weights8<Masked>(lut, luma + x, mask + x));
}

// weigh_run alone in a function that loads its own tables: GCC then keeps
// them in registers over the run (inlined beside the other frames' lookups,
// or reading them through a reference that the byte stores may alias, it
// reloads them every step; passed by value, they went through a block copy
// on the stack at every call).
template <bool Masked, class Lut>
__attribute__((noinline)) void weigh_run_apart(uint8_t *w, const uint8_t *curve, const CurveParts &cp,
                                               const uint8_t *luma, const uint8_t *mask, int len) {
    const Lut lut(curve, cp);
    weigh_run<Masked>(w, lut, luma, mask, len);
}

template <class Lut>
void well_exposed_rows(uint8_t *dst, const uint8_t *luma, ptrdiff_t stride, const uint8_t *mask,
                       const Lut &lut, int width, int height) {
    const int n = width & ~7;
    for (int r = 0; r < height; ++r) {
        weigh_run<true>(dst, lut, luma, mask, n);
        mask += n;
        luma += n + (stride - width);
        dst += n + (stride - width);
    }
}

} // namespace

decl_weight_well_exposed_fn(weight_well_exposed_neon) {
    CurveParts cp = curve_parts<5>(curve);
    // Fewer parts run faster; more than 5 cost as much as all 8.
    if (cp.fold) {
        well_exposed_rows(dst, luma, stride, mask, CurveLut<4, true>(curve, cp), width, height);
    } else if (cp.count <= 4) {
        if (cp.first > 4) cp.first = 4;
        well_exposed_rows(dst, luma, stride, mask, CurveLut<4, false>(curve, cp), width, height);
    } else if (cp.count == 5) {
        well_exposed_rows(dst, luma, stride, mask, CurveLut<5, false>(curve, cp), width, height);
    } else {
        cp.first = 0;
        well_exposed_rows(dst, luma, stride, mask, CurveLut<8, false>(curve, cp), width, height);
    }
}

// min(255, (w * q + 128) >> 8) with q = 256 qh + ql split into bytes:
// w * q = 256 w qh + w ql, so the rounded shift is w qh + ((w ql + 128) >> 8)
// exactly; both products fit 16 bits and their sum stays below 65280.
static inline uint8x8_t scale_weight(uint8x8_t w, uint8x8_t qh, uint8x8_t ql) {
    return vqmovn_u16(vaddw_u8(vmull_u8(w, qh), vrshrn_n_u16(vmull_u8(w, ql), 8)));
}

// The reciprocals of eight sums.  AArch64 divides: 65536 / max(s, 1) in
// float, truncated, is the table entry for every s up to 765 (a quotient
// that is not whole lies at least 1/s from the next whole number, more than
// half a float step of 65536 / s), and the saturating narrow turns the
// 65536 of s <= 1 into the table's 65535.  armv7 has no vector division and
// no vector gather: eight lane loads from the table.
static inline uint16x8_t reciprocals(uint16x8_t sum) {
#if defined(__aarch64__)
    const float32x4_t k = vdupq_n_f32(65536.0f);
    const uint16x8_t s = vmaxq_u16(sum, vdupq_n_u16(1));
    const uint32x4_t lo = vcvtq_u32_f32(vdivq_f32(k, vcvtq_f32_u32(vmovl_u16(vget_low_u16(s)))));
    const uint32x4_t hi = vcvtq_u32_f32(vdivq_f32(k, vcvtq_f32_u32(vmovl_high_u16(s))));
    return vcombine_u16(vqmovn_u32(lo), vqmovn_u32(hi));
#else
    uint16_t s[8];
    vst1q_u16(s, sum);
    uint16x8_t q = vdupq_n_u16(0);
    q = vld1q_lane_u16(&weight_int_tab[s[0]], q, 0);
    q = vld1q_lane_u16(&weight_int_tab[s[1]], q, 1);
    q = vld1q_lane_u16(&weight_int_tab[s[2]], q, 2);
    q = vld1q_lane_u16(&weight_int_tab[s[3]], q, 3);
    q = vld1q_lane_u16(&weight_int_tab[s[4]], q, 4);
    q = vld1q_lane_u16(&weight_int_tab[s[5]], q, 5);
    q = vld1q_lane_u16(&weight_int_tab[s[6]], q, 6);
    q = vld1q_lane_u16(&weight_int_tab[s[7]], q, 7);
    return q;
#endif
}

// The three weights of eight pixels normalised together and stored.
static inline void normalize_store8(uint8_t *d0, uint8_t *d1, uint8_t *d2, uint8x8_t a, uint8x8_t b, uint8x8_t c) {
    const uint16x8_t q = reciprocals(vaddw_u8(vaddl_u8(a, b), c));
    const uint8x8_t qh = vshrn_n_u16(q, 8), ql = vmovn_u16(q);
    vst1_u8(d0, scale_weight(a, qh, ql));
    vst1_u8(d1, scale_weight(b, qh, ql));
    vst1_u8(d2, scale_weight(c, qh, ql));
}

static inline void normalize8(uint8_t *w0, uint8_t *w1, uint8_t *w2) {
    normalize_store8(w0, w1, w2, vld1_u8(w0), vld1_u8(w1), vld1_u8(w2));
}

decl_weight_normalize_fn(weight_normalize_neon) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    for (int r = 0; r < height; ++r) {
        int x = 0;
        for (; x + 16 <= n; x += 16) {
            normalize8(w0 + x, w1 + x, w2 + x);
            normalize8(w0 + x + 8, w1 + x + 8, w2 + x + 8);
        }
        if (x < n) normalize8(w0 + x, w1 + x, w2 + x);
        w0 += next;
        w1 += next;
        w2 += next;
    }
}

namespace {

// Rows in runs of up to kRun pixels: each frame's weights are made with its
// own lookup tables in registers (the three sets do not fit at once) into a
// buffer that stays in the L1 cache, then the three are normalised together.
constexpr int kRun = 512;

template <bool Masked, class L0, class L1, class L2>
void fused_rows(uint8_t *const *dst, const uint8_t *const *luma, ptrdiff_t stride, const uint8_t *const *mask,
                const uint8_t *curves, const CurveParts *cp, int width, int height) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    uint8_t *d0 = dst[0], *d1 = dst[1], *d2 = dst[2];
    const uint8_t *l0 = luma[0], *l1 = luma[1], *l2 = luma[2];
    // Unmasked, the mask pointers are never read: the luma rows stand in.
    const uint8_t *m0 = Masked ? mask[0] : l0, *m1 = Masked ? mask[1] : l1, *m2 = Masked ? mask[2] : l2;
    alignas(16) uint8_t w[3][kRun];
    for (int r = 0; r < height; ++r) {
        for (int x0 = 0; x0 < n; x0 += kRun) {
            const int len = n - x0 < kRun ? n - x0 : kRun;
            weigh_run_apart<Masked, L0>(w[0], curves, cp[0], l0 + x0, m0 + x0, len);
            weigh_run_apart<Masked, L1>(w[1], curves + 256, cp[1], l1 + x0, m1 + x0, len);
            weigh_run_apart<Masked, L2>(w[2], curves + 512, cp[2], l2 + x0, m2 + x0, len);
            for (int x = 0; x < len; x += 8)
                normalize_store8(d0 + x0 + x, d1 + x0 + x, d2 + x0 + x, vld1_u8(w[0] + x), vld1_u8(w[1] + x),
                                 vld1_u8(w[2] + x));
        }
        d0 += next, d1 += next, d2 += next;
        l0 += next, l1 += next, l2 += next;
        if (Masked) m0 += n, m1 += n, m2 += n;
    }
}

template <class L0, class L1, class L2>
void fused_luts(uint8_t *const *dst, const uint8_t *const *luma, ptrdiff_t stride, const uint8_t *const *mask,
                const uint8_t *curves, const CurveParts *cp, int width, int height) {
    if (mask) fused_rows<true, L0, L1, L2>(dst, luma, stride, mask, curves, cp, width, height);
    else fused_rows<false, L0, L1, L2>(dst, luma, stride, mask, curves, cp, width, height);
}

} // namespace

decl_weight_fused_fn(weight_fused_neon) {
    CurveParts cp[3];
    for (int f = 0; f < 3; ++f) cp[f] = curve_parts<5>(curves + 256 * f);
    // The merge's curves: a falling and a rising one of at most five parts
    // each and the bell.  Any other set looks up all eight parts of each.
    if (!cp[0].fold && cp[0].count <= 5 && !cp[1].fold && cp[1].count <= 5 && cp[2].fold) {
        for (int f = 0; f < 2; ++f)
            if (cp[f].first > 3) cp[f].first = 3;
        fused_luts<CurveLut<5, false>, CurveLut<5, false>, CurveLut<4, true>>(dst, luma, stride, mask, curves, cp,
                                                                              width, height);
    } else {
        for (int f = 0; f < 3; ++f) cp[f].first = 0;
        fused_luts<CurveLut<8, false>, CurveLut<8, false>, CurveLut<8, false>>(dst, luma, stride, mask, curves, cp,
                                                                               width, height);
    }
}

// min(255, (sum + 2048) >> 12): the saturating narrows give the clamp.
static inline uint8x8_t weight_out(uint32x4_t lo, uint32x4_t hi) {
    return vqmovn_u16(vcombine_u16(vqrshrn_n_u32(lo, 12), vqrshrn_n_u32(hi, 12)));
}

// The taps live in vectors: the by-scalar multiply intrinsics would move the
// scalar into a lane on every step (armv7).  AArch64 multiplies the high
// halves in place (umlal2) instead of first moving them to a register of
// their own.
static inline uint32x4_t mlal_high(uint32x4_t a, uint16x8_t b, uint16x4_t k) {
#if defined(__aarch64__)
    return vmlal_high_u16(a, b, vcombine_u16(k, k));
#else
    return vmlal_u16(a, vget_high_u16(b), k);
#endif
}

decl_reduce_v_fn(weight_reduce_v_neon) {
    const ptrdiff_t s = out_w;
    const int first = reduce_v_first(y0);
    const uint16x4_t k2 = vdup_n_u16(2), k4 = vdup_n_u16(4), k8 = vdup_n_u16(8), k54 = vdup_n_u16(54),
                     k55 = vdup_n_u16(55);
    for (int x = 0; y0 == 0 && x < out_w; x += 8) {
        uint16x8_t t0 = vld1q_u16(t + x), t1 = vld1q_u16(t + s + x), t2 = vld1q_u16(t + 2 * s + x);
        // 54 t0 + 8 t1 + 2 t2
        uint32x4_t lo = vmull_u16(vget_low_u16(t0), k54);
        uint32x4_t hi = vmull_u16(vget_high_u16(t0), k54);
        lo = vmlal_u16(lo, vget_low_u16(t1), k8);
        hi = mlal_high(hi, t1, k8);
        lo = vmlal_u16(lo, vget_low_u16(t2), k2);
        hi = mlal_high(hi, t2, k2);
        vst1_u8(dst + x, weight_out(lo, hi));
    }
    for (int k = y0 > 1 ? y0 : 1; k < y1; ++k) {
        const uint16_t *c = t + (2 * k - first) * s;
        uint8_t *d = dst + k * dst_stride;
        if (k == out_h - 1) { // t[2k] stands in for t[2k+2]: 55 t[2k]
            for (int x = 0; x < out_w; x += 8) {
                const uint16x8_t m2 = vld1q_u16(c - 2 * s + x), c0 = vld1q_u16(c + x);
                const uint16x8_t s4 = vaddq_u16(vld1q_u16(c - s + x), vld1q_u16(c + s + x));
                uint32x4_t lo = vmlal_u16(vmovl_u16(vget_low_u16(m2)), vget_low_u16(s4), k4);
                uint32x4_t hi = mlal_high(vmovl_u16(vget_high_u16(m2)), s4, k4);
                lo = vmlal_u16(lo, vget_low_u16(c0), k55);
                hi = mlal_high(hi, c0, k55);
                vst1_u8(d + x, weight_out(lo, hi));
            }
            continue;
        }
        // The pointers walk with the columns: each load post-increments its own register.
        const uint16_t *m2p = c - 2 * s, *m1p = c - s, *p1p = c + s, *p2p = c + 2 * s;
        for (int x = 0; x < out_w; x += 8, m2p += 8, m1p += 8, c += 8, p1p += 8, p2p += 8) {
            const uint16x8_t m2 = vld1q_u16(m2p), p2 = vld1q_u16(p2p), c0 = vld1q_u16(c);
            const uint16x8_t s4 = vaddq_u16(vld1q_u16(m1p), vld1q_u16(p1p)); // at most 32640
            uint32x4_t lo = vaddl_u16(vget_low_u16(m2), vget_low_u16(p2));
            uint32x4_t hi = vaddl_u16(vget_high_u16(m2), vget_high_u16(p2));
            lo = vmlal_u16(lo, vget_low_u16(s4), k4);
            hi = mlal_high(hi, s4, k4);
            lo = vmlal_u16(lo, vget_low_u16(c0), k54);
            hi = mlal_high(hi, c0, k54);
            vst1_u8(d + x, weight_out(lo, hi));
        }
    }
}
