// NEON kernels of the ghost stage: the threshold mask rows and the motion rows
// (16 columns a step).
#include <string.h>

#include "common/neon.h"
#include "ghost/ghost_dsp.h"
#include "varo_hdr.h"

namespace {

void mask_row_neon(const uint8_t *s, uint8_t *d, unsigned width, uint8_t threshold) {
    const uint8x16_t thr = vdupq_n_u8(threshold);
    unsigned x = 0;
    for (; x + 16 <= width; x += 16) vst1q_u8(d + x, vcgeq_u8(vld1q_u8(s + x), thr));
    if (x + 8 <= width) {
        vst1_u8(d + x, vcge_u8(vld1_u8(s + x), vget_low_u8(thr)));
        x += 8;
    }
    if (x + 4 <= width) {
        // Exactly four bytes in and out: the columns after them are not ours.
        uint32_t in;
        memcpy(&in, s + x, 4);
        const uint8x8_t m = vcge_u8(vreinterpret_u8_u32(vdup_n_u32(in)), vget_low_u8(thr));
        const uint32_t out = vget_lane_u32(vreinterpret_u32_u8(m), 0);
        memcpy(d + x, &out, 4);
    }
}

decl_mask_rows_fn(mask_rows_neon) {
    mask_row_neon(src, dst, width, threshold);
    mask_row_neon(src + src_stride, dst + dst_stride, width, threshold);
}

#if defined(__aarch64__)
// A 256-entry table as four 64-byte TBL tables; after k steps of -64 the
// values of group k are 0..63, every other value is out of range (wrapped
// ones included) and TBX leaves its lane alone.
struct Lut {
    uint8x16x4_t t[4];
    explicit Lut(const uint8_t *tab) {
        for (int k = 0; k < 4; ++k)
            for (int j = 0; j < 4; ++j) t[k].val[j] = vld1q_u8(tab + 64 * k + 16 * j);
    }
    uint8x16_t operator()(uint8x16_t i) const {
        const uint8x16_t step = vdupq_n_u8(64);
        uint8x16_t r = vqtbl4q_u8(t[0], i);
        for (int k = 1; k < 4; ++k) r = vqtbx4q_u8(r, t[k], i = vsubq_u8(i, step));
        return r;
    }
};
#else
// The same with armv7's 32-byte VTBL tables, 8 lanes at a time.
struct Lut {
    uint8x8x4_t t[8];
    explicit Lut(const uint8_t *tab) {
        for (int k = 0; k < 8; ++k)
            for (int j = 0; j < 4; ++j) t[k].val[j] = vld1_u8(tab + 32 * k + 8 * j);
    }
    uint8x8_t half(uint8x8_t i) const {
        const uint8x8_t step = vdup_n_u8(32);
        uint8x8_t r = vtbl4_u8(t[0], i);
        for (int k = 1; k < 8; ++k) r = vtbx4_u8(r, t[k], i = vsub_u8(i, step));
        return r;
    }
    uint8x16_t operator()(uint8x16_t i) const { return vcombine_u8(half(vget_low_u8(i)), half(vget_high_u8(i))); }
};
#endif

inline uint8x16_t le(uint8x16_t a, int c) { return vcleq_u8(a, vdupq_n_u8((uint8_t)c)); }
inline uint8x16_t ge(uint8x16_t a, int c) { return vcgeq_u8(a, vdupq_n_u8((uint8_t)c)); }

// diff > bound, or diff >= bound where inclusive (all ones).
inline uint8x16_t cut_pass(uint8x16_t d, uint8x16_t bound, uint8x16_t inclusive) {
    return vorrq_u8(vcgtq_u8(d, bound), vandq_u8(vceqq_u8(d, bound), inclusive));
}

decl_motion_row_fn(motion_row_neon) {
    const unsigned n = width & ~15u;
    if (n == 0) return motion_row_tail_c(dst, src, mask, 0, width, rules);
    const Lut le_predict(rules->le_predict), le_bound(rules->le_cut.bound);
    const Lut he_predict(rules->he_predict), he_bound(rules->he_cut.bound);
    const uint8x16_t one = vdupq_n_u8(1), zero = vdupq_n_u8(0);
    const uint8x16_t le_incl = vdupq_n_u8(rules->le_cut.inclusive ? 255 : 0);
    const uint8x16_t he_incl = vdupq_n_u8(rules->he_cut.inclusive ? 255 : 0);
    const int le_rule = rules->le_rule, he_rule = rules->he_rule;
    uint32x4_t counted = vdupq_n_u32(0);
    for (unsigned x = 0; x < n; x += 16) {
        const uint8x16_t a = vld1q_u8(src[AE_IDX] + x), h = vld1q_u8(src[HE_IDX] + x);
        uint8x16_t l = vld1q_u8(src[LE_IDX] + x), ae = a, ma = one, ml = one, mh = one;
        if (le_rule != MOTION_LE_OFF) {
            const uint8x16_t p = le_predict(a);
            const uint8x16_t pass = cut_pass(vabdq_u8(l, p), le_bound(l), le_incl);
            if (le_rule == MOTION_LE_SHORT) {
                const uint8x16_t drop = vandq_u8(pass, le(a, 219));
                const uint8x16_t repl = vandq_u8(vandq_u8(pass, le(l, 127)), ge(a, 221));
                ml = vbicq_u8(ml, vorrq_u8(drop, repl));
                l = vbslq_u8(repl, p, l);
            } else if (le_rule == MOTION_LE_MILD) {
                ml = vbicq_u8(ml, pass);
                ma = vorrq_u8(ma, pass);
            } else {
                const uint8x16_t darker = vcltq_u8(a, l);
                const uint8x16_t repl = vbicq_u8(vandq_u8(pass, le(l, 191)), darker);
                ml = vbicq_u8(ml, vorrq_u8(darker, repl));
                l = vbslq_u8(repl, p, l);
            }
        }
        if (he_rule != MOTION_HE_OFF) {
            const uint8x16_t p = he_predict(h);
            const uint8x16_t pass = cut_pass(vabdq_u8(a, p), he_bound(h), he_incl);
            if (he_rule == MOTION_HE_SHORT) {
                mh = vbicq_u8(mh, pass);
                ma = vorrq_u8(ma, pass);
            } else {
                const uint8x16_t first = vandq_u8(pass, le(h, 220));
                const uint8x16_t dark = vandq_u8(vandq_u8(pass, ge(h, 221)), le(a, 127));
                const uint8x16_t repl = vorrq_u8(first, dark);
                ma = vbicq_u8(ma, repl);
                ml = vbicq_u8(ml, vorrq_u8(repl, vcgtq_u8(l, h)));
                ae = vbslq_u8(repl, p, a);
                counted = vpadalq_u16(counted, vpaddlq_u8(vandq_u8(dark, one)));
                const uint8x16_t keep = vandq_u8(vandq_u8(ge(h, 241), ge(l, 129)), vceqq_u8(ml, zero));
                ml = vorrq_u8(ml, vandq_u8(keep, one));
            }
        }
        vst1q_u8(dst[AE_IDX] + x, ae), vst1q_u8(dst[LE_IDX] + x, l), vst1q_u8(dst[HE_IDX] + x, h);
        vst1q_u8(mask[AE_IDX] + x, ma), vst1q_u8(mask[LE_IDX] + x, ml), vst1q_u8(mask[HE_IDX] + x, mh);
    }
    const uint64x2_t s = vpaddlq_u32(counted);
    return (uint32_t)(vgetq_lane_u64(s, 0) + vgetq_lane_u64(s, 1)) + motion_row_tail_c(dst, src, mask, n, width, rules);
}

} // namespace

void ghost_dsp_init_neon(GhostDsp *dsp) {
    dsp->mask_rows = mask_rows_neon;
    dsp->motion_row = motion_row_neon;
}
