// Kernels of the output normalisation: overshoot statistics of the fused
// luma, and the tone mapping of luma with the matching chroma gain.
#pragma once
#include <stddef.h>
#include <stdint.h>

// Totals of the under-range (v < 0) and over-range (v > 255) values.  The
// sums and the under-range sum of squares come from four wrapping 32-bit
// partial sums (value i of a 16-value block into partial i mod 4), each
// sign-extended and added in 64 bits; the over-range squares are summed in
// 64 bits.
struct ToneStats {
    uint32_t under_count, over_count;
    int64_t under_sum, under_sq;
    int64_t over_sum, over_sq;
};

// The raw partials behind ToneStats.  Partial i holds the columns x with
// x mod 4 == i (blocks start at column 0), and a wrapping add is
// associative, so rows may be added in any split and order as long as the
// sign extension waits for tone_stats_total.
struct ToneAcc {
    uint32_t under_count, over_count;
    uint32_t under_sum[4], over_sum[4], under_sq[4];
    uint64_t over_sq; // exact: 13 M squares below 2^30 each
};

static inline void tone_stats_total(ToneStats *st, const ToneAcc *a) {
    st->under_count = a->under_count;
    st->over_count = a->over_count;
    st->under_sum = st->under_sq = st->over_sum = 0;
    for (int i = 0; i < 4; ++i) {
        st->under_sum += (int32_t)a->under_sum[i];
        st->under_sq += (int32_t)a->under_sq[i];
        st->over_sum += (int32_t)a->over_sum[i];
    }
    st->over_sq = (int64_t)a->over_sq;
}

// Adds `rows` rows of `width16` values (a multiple of 16), 16 per step, into
// *acc.
#define decl_tone_stats_fn(name) void (name)(ToneAcc *acc, const int16_t *luma, ptrdiff_t stride, \
    int width16, int rows)
typedef decl_tone_stats_fn(*tone_stats_fn);

// What the mapping needs from the statistics.
struct ToneCurve {
    const uint8_t *lut;  // 512 entries, indexed by clamp(v, lo, hi) - lo
    const int32_t *gain; // tone_gain of every v in lo..hi, indexed by v - lo
    int16_t lo, hi;
    int16_t low_anchor, high_anchor; // L and U, truncated to 16 bits
};

// Two luma rows and one chroma row per step of `row_pairs`, 8 columns at a
// time over width8 (a multiple of 8) columns; writes exactly width8 bytes of
// both output luma rows and of the output chroma row (pitch out_pitch).
// Per pixel y = lut[clamp(v) - lo] and the gain g (1/4096 units, from the
// curve's gain table when v is inside lo..hi, else computed):
// y >= v: ((v - L) << 12) / (y - L), else ((U - v) << 12) / (U - y), the
// differences wrapped to 16 bits, division truncating, divisor 0 gives 0.
// Chroma value d of pair j with S = the gains of its 2x2 block summed:
// sat_u8(((int16)(((int32)(d * S) >> 13) + 256)) >> 1), d * S wrapping in 32
// bits and the shifted product kept in 16 bits.
#define decl_tone_map_fn(name) void (name)(uint8_t *out_luma, uint8_t *out_chroma, \
    ptrdiff_t out_pitch, const int16_t *luma, ptrdiff_t luma_stride, const int16_t *chroma, \
    ptrdiff_t chroma_stride, int width8, int row_pairs, const ToneCurve *c)
typedef decl_tone_map_fn(*tone_map_fn);

struct ToneDsp {
    tone_stats_fn stats;
    tone_map_fn map;
};

void tone_dsp_init_c(ToneDsp *dsp);
void tone_dsp_init_neon(ToneDsp *dsp); // Arm builds and SIMDe test builds only
void tone_dsp_init_sse41(ToneDsp *dsp); // x86-64 builds only
void tone_dsp_init_avx2(ToneDsp *dsp);  // x86-64 builds only

// Shared by the reference and the SIMD kernels: one pixel's chroma gain.
static inline int32_t tone_gain(int v, int y, int16_t L, int16_t U) {
    int16_t num, den;
    if (y >= v) {
        num = (int16_t)(v - L);
        den = (int16_t)(y - L);
    } else {
        num = (int16_t)(U - v);
        den = (int16_t)(U - y);
    }
    return den ? (int32_t)num * 4096 / den : 0;
}

// One chroma output from its fused value d and the block's gain sum S.
static inline uint8_t tone_chroma(int16_t d, int32_t S) {
    const int32_t p = (int32_t)((uint32_t)(int32_t)d * (uint32_t)S);
    const int16_t t = (int16_t)(p >> 13);
    const int16_t u = (int16_t)(t + 256);
    const int r = u >> 1;
    return (uint8_t)(r < 0 ? 0 : r > 255 ? 255 : r);
}

// Columns x0 .. x1 - 1 (x0 even) of one row pair: the four luma values of
// each 2x2 block through the curve, and the block's chroma pair by their
// summed gain.  The reference, and the SIMD kernels' columns that leave the
// curve's range.
static inline void tone_map_cols(uint8_t *o0, uint8_t *o1, uint8_t *cout, const int16_t *l0,
                                 const int16_t *l1, const int16_t *cin, int x0, int x1,
                                 const ToneCurve *c) {
    for (int x = x0; x < x1; x += 2) {
        int32_t S = 0;
        for (int k = 0; k < 4; ++k) {
            const int col = x + (k & 1);
            const int v = k < 2 ? l0[col] : l1[col];
            const int vc = v < c->lo ? c->lo : v > c->hi ? c->hi : v;
            const int y = c->lut[vc - c->lo];
            (k < 2 ? o0 : o1)[col] = (uint8_t)y;
            S += vc == v ? c->gain[vc - c->lo] : tone_gain(v, y, c->low_anchor, c->high_anchor);
        }
        cout[x] = tone_chroma(cin[x], S);
        cout[x + 1] = tone_chroma(cin[x + 1], S);
    }
}

// The gain only depends on v (y is a function of v), so inside the curve's
// input range it is computed once per value instead of once per pixel.
static inline void tone_gain_table(int32_t *gain, const uint8_t *lut, int lo, int hi, int16_t L,
                                   int16_t U) {
    for (int v = lo; v <= hi; ++v) gain[v - lo] = tone_gain(v, lut[v - lo], L, U);
}
