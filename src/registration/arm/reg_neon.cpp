#include "common/neon.h"
#include "registration/reg_dsp.h"

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
// From level 3 on: the even samples of the next finer level's two runs of 16.
template <int Level> inline uint8x16_t load16(const uint8_t *src) {
    return vuzpq_u8(load16<Level - 1>(src), load16<Level - 1>(src + (16 << (Level - 1)))).val[0];
}
template <> inline uint8x16_t load16<0>(const uint8_t *src) { return vld1q_u8(src); }
template <> inline uint8x16_t load16<1>(const uint8_t *src) { return vld2q_u8(src).val[0]; }
template <> inline uint8x16_t load16<2>(const uint8_t *src) { return vld4q_u8(src).val[0]; }

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
decl_bitmap_row_fn(bitmap_row_neon) {
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

// Four word pairs per step: vld2 splits them into threshold and exclusion
// words, vcnt counts the bits of d per byte and the byte counts are added
// pairwise into 16-bit lanes (at most 16 per step and lane, 24 steps in the
// widest level-0 row).  The bits are those of the reference's
// (Ft ^ Mt) & Fe & Me, so the counts are the same.
template <bool StoreDiff>
uint32_t row_error_neon(const uint32_t *fixed, const uint32_t *moving, unsigned width_words,
                        unsigned shift, uint32_t *diff) {
    uint16x8_t acc = vdupq_n_u16(0);
    unsigned k = 0;
    if (shift == 0) {
        for (; k + 4 <= width_words; k += 4) {
            const uint32x4x2_t f = vld2q_u32(fixed + 2 * k), m = vld2q_u32(moving + 2 * k);
            const uint32x4_t d = vandq_u32(veorq_u32(f.val[0], m.val[0]), vandq_u32(f.val[1], m.val[1]));
            if (StoreDiff) vst1q_u32(diff + k, d);
            acc = vpadalq_u8(acc, vcntq_u8(vreinterpretq_u8_u32(d)));
        }
    } else {
        // Moving bits most-significant first across pair j and pair j + 1.
        const int32x4_t sl = vdupq_n_s32((int)shift), sr = vdupq_n_s32((int)shift - 32);
        for (; k + 4 <= width_words; k += 4) {
            const uint32x4x2_t f = vld2q_u32(fixed + 2 * k);
            const uint32x4x2_t m = vld2q_u32(moving + 2 * k), n = vld2q_u32(moving + 2 * k + 2);
            const uint32x4_t mt = vorrq_u32(vshlq_u32(m.val[0], sl), vshlq_u32(n.val[0], sr));
            const uint32x4_t me = vorrq_u32(vshlq_u32(m.val[1], sl), vshlq_u32(n.val[1], sr));
            const uint32x4_t d = vandq_u32(veorq_u32(f.val[0], mt), vandq_u32(f.val[1], me));
            if (StoreDiff) vst1q_u32(diff + k, d);
            acc = vpadalq_u8(acc, vcntq_u8(vreinterpretq_u8_u32(d)));
        }
    }
    if (k < width_words) {
        // The last 1..3 pairs one at a time, counted together in one vector.
        const auto pair = [&](unsigned j) {
            uint32_t mt = moving[2 * j], me = moving[2 * j + 1];
            if (shift) {
                mt = (mt << shift) | (moving[2 * j + 2] >> (32 - shift));
                me = (me << shift) | (moving[2 * j + 3] >> (32 - shift));
            }
            const uint32_t d = (fixed[2 * j] ^ mt) & fixed[2 * j + 1] & me;
            if (StoreDiff) diff[j] = d;
            return d;
        };
        uint32_t tail[4] = {pair(k), 0, 0, 0};
        if (k + 1 < width_words) tail[1] = pair(k + 1);
        if (k + 2 < width_words) tail[2] = pair(k + 2);
        acc = vpadalq_u8(acc, vcntq_u8(vreinterpretq_u8_u32(vld1q_u32(tail))));
    }
    const uint64x2_t s = vpaddlq_u32(vpaddlq_u16(acc));
    return (uint32_t)vget_lane_u64(vadd_u64(vget_low_u64(s), vget_high_u64(s)), 0);
}

decl_bitmap_row_error_fn(bitmap_row_error_neon) {
    return diff ? row_error_neon<true>(fixed, moving, width_words, shift, diff)
                : row_error_neon<false>(fixed, moving, width_words, shift, nullptr);
}

} // namespace

// Bitmap levels 4 and 5 (at most 260 samples a row) keep their reference
// kernels.
void reg_dsp_init_neon(RegDsp *dsp) {
    dsp->bitmap_row_error = bitmap_row_error_neon;
    dsp->bitmap_row[0] = bitmap_row_neon<0>;
    dsp->bitmap_row[1] = bitmap_row_neon<1>;
    dsp->bitmap_row[2] = bitmap_row_neon<2>;
    dsp->bitmap_row[3] = bitmap_row_neon<3>;
    dsp->bitmap_row[4] = bitmap_row_neon<4>;
    dsp->bitmap_row[5] = bitmap_row_neon<5>;
}
