#include <string.h>

#include "common/neon.h"
#include "registration/reg_dsp.h"
#include "varo_hdr.h"

namespace {

// Scalar tail for a last pair of fewer than 32 samples; same bits as the
// vector path.
template <int Level>
void bitmap_tail(const uint8_t *src, unsigned first, unsigned width, uint8_t median,
                 uint8_t tolerance, uint32_t *dst) {
    uint32_t t = 0, e = 0;
    for (unsigned c = first; c < width; ++c) {
        const uint8_t p = src[(size_t)c << Level];
        const uint8_t diff = p > median ? (uint8_t)(p - median) : (uint8_t)(median - p);
        t |= (uint32_t)(p > median) << (31 - (c - first));
        e |= (uint32_t)(diff >= tolerance) << (31 - (c - first));
    }
    dst[0] = t;
    dst[1] = e;
}

// 16 consecutive samples of the level, starting at sample 0 of `src`.
template <int Level> inline uint8x16_t load16(const uint8_t *src);
template <> inline uint8x16_t load16<0>(const uint8_t *src) { return vld1q_u8(src); }
template <> inline uint8x16_t load16<1>(const uint8_t *src) { return vld2q_u8(src).val[0]; }
template <> inline uint8x16_t load16<2>(const uint8_t *src) { return vld4q_u8(src).val[0]; }
template <> inline uint8x16_t load16<3>(const uint8_t *src) {
    // Every fourth byte of each 64, then every second of those.
    return vuzpq_u8(vld4q_u8(src).val[0], vld4q_u8(src + 64).val[0]).val[0];
}

// Folds 32 lane masks (0 or 0xFF, sample 0 in lane 0 of t0) into the word
// pair.  Each lane keeps one bit of weight 128 >> (lane & 7); three pairwise
// additions of distinct bits sum each group of 8 lanes into one byte b_j
// (sample 8j in bit 7), which equals (t >> (24 - 8j)) & 255 of the scalar
// word t = sum over samples c of bit_c << (31 - c).  vrev32 then places b_0
// in the most significant byte of each 32-bit lane.
inline void store_pair(uint8x16_t t0, uint8x16_t t1, uint8x16_t e0, uint8x16_t e1,
                       uint32_t *dst) {
    static const uint8_t kWeights[16] = {128, 64, 32, 16, 8, 4, 2, 1,
                                         128, 64, 32, 16, 8, 4, 2, 1};
    const uint8x16_t w = vld1q_u8(kWeights);
    t0 = vandq_u8(t0, w);
    t1 = vandq_u8(t1, w);
    e0 = vandq_u8(e0, w);
    e1 = vandq_u8(e1, w);
    const uint8x8_t t0s = vpadd_u8(vget_low_u8(t0), vget_high_u8(t0));
    const uint8x8_t t1s = vpadd_u8(vget_low_u8(t1), vget_high_u8(t1));
    const uint8x8_t e0s = vpadd_u8(vget_low_u8(e0), vget_high_u8(e0));
    const uint8x8_t e1s = vpadd_u8(vget_low_u8(e1), vget_high_u8(e1));
    // Lanes: T bytes 0..3, E bytes 0..3.
    const uint8x8_t bytes = vpadd_u8(vpadd_u8(t0s, t1s), vpadd_u8(e0s, e1s));
    vst1_u32(dst, vreinterpret_u32_u8(vrev32_u8(bytes)));
}

template <int Level>
void bitmap_row_neon(const uint8_t *src, unsigned width, uint8_t median, uint8_t tolerance,
                     uint32_t *dst) {
    const uint8x16_t med = vdupq_n_u8(median);
    const uint8x16_t tol = vdupq_n_u8(tolerance);
    const unsigned groups = width >> 5;
    for (unsigned k = 0; k < groups; ++k) {
        const uint8_t *s = src + ((size_t)(32 * k) << Level);
        const uint8x16_t p0 = load16<Level>(s);
        const uint8x16_t p1 = load16<Level>(s + (16 << Level));
        store_pair(vcgtq_u8(p0, med), vcgtq_u8(p1, med), vcgeq_u8(vabdq_u8(p0, med), tol),
                   vcgeq_u8(vabdq_u8(p1, med), tol), dst + 2 * k);
    }
    if (width & 31) bitmap_tail<Level>(src, 32 * groups, width, median, tolerance, dst + 2 * groups);
}

inline uint32_t popcount_tab(uint32_t d) {
    return (uint32_t)(bits_num[d >> 24] + bits_num[(d >> 16) & 255] + bits_num[(d >> 8) & 255] +
                      bits_num[d & 255]);
}

// Four pairs per step.  vcnt gives the set bits of each byte, which is
// bits_num of that byte, so the per-row sum equals the table sum exactly.
template <bool Shifted, bool StoreDiff>
uint32_t row_error(const uint32_t *fixed, const uint32_t *moving, unsigned width_words,
                   unsigned shift, uint32_t *diff) {
    const int32x4_t left = vdupq_n_s32((int32_t)shift);
    const int32x4_t right = vdupq_n_s32((int32_t)shift - 32); // negative: logical right shift
    uint16x8_t acc = vdupq_n_u16(0); // at most 16 per lane per step, rows < 4096 steps
    unsigned k = 0;
    for (; k + 4 <= width_words; k += 4) {
        const uint32x4x2_t f = vld2q_u32(fixed + 2 * k);
        uint32x4x2_t m = vld2q_u32(moving + 2 * k);
        if (Shifted) {
            const uint32x4x2_t n = vld2q_u32(moving + 2 * k + 2);
            m.val[0] = vorrq_u32(vshlq_u32(m.val[0], left), vshlq_u32(n.val[0], right));
            m.val[1] = vorrq_u32(vshlq_u32(m.val[1], left), vshlq_u32(n.val[1], right));
        }
        const uint32x4_t d =
            vandq_u32(vandq_u32(veorq_u32(f.val[0], m.val[0]), f.val[1]), m.val[1]);
        if (StoreDiff) vst1q_u32(diff + k, d);
        acc = vpadalq_u8(acc, vcntq_u8(vreinterpretq_u8_u32(d)));
    }
    const uint64x2_t sum2 = vpaddlq_u32(vpaddlq_u16(acc));
    uint32_t err = (uint32_t)(vgetq_lane_u64(sum2, 0) + vgetq_lane_u64(sum2, 1));
    for (; k < width_words; ++k) {
        uint32_t mt = moving[2 * k], me = moving[2 * k + 1];
        if (Shifted) {
            mt = (mt << shift) | (moving[2 * k + 2] >> (32 - shift));
            me = (me << shift) | (moving[2 * k + 3] >> (32 - shift));
        }
        const uint32_t d = (fixed[2 * k] ^ mt) & fixed[2 * k + 1] & me;
        if (StoreDiff) diff[k] = d;
        err += popcount_tab(d);
    }
    return err;
}

uint32_t bitmap_row_error_neon(const uint32_t *fixed, const uint32_t *moving,
                               unsigned width_words, unsigned shift, uint32_t *diff) {
    if (shift == 0)
        return diff ? row_error<false, true>(fixed, moving, width_words, 0, diff)
                    : row_error<false, false>(fixed, moving, width_words, 0, nullptr);
    return diff ? row_error<true, true>(fixed, moving, width_words, shift, diff)
                : row_error<true, false>(fixed, moving, width_words, shift, nullptr);
}

} // namespace

void reg_dsp_init_neon(RegDsp *dsp) {
    dsp->bitmap_row[0] = bitmap_row_neon<0>;
    dsp->bitmap_row[1] = bitmap_row_neon<1>;
    dsp->bitmap_row[2] = bitmap_row_neon<2>;
    dsp->bitmap_row[3] = bitmap_row_neon<3>;
    dsp->bitmap_row_error = bitmap_row_error_neon;
}
