// Steps shared by the SSE4.1 and AVX2 weight kernels.  Each including file
// gets its own copy (internal linkage), compiled with that file's flags.
#pragma once
#include <smmintrin.h>
#include <stdint.h>

#include "fusion/fusion_dsp.h"

namespace {

// min(255, (w * q + 128) >> 8) of 16-bit w (<= 255) and q, from the two
// halves of the 32-bit product: a non-zero high half means at least 65536,
// i.e. 255 after the shift; otherwise the saturating add stands in for the
// one case (low half >= 65408) where the sum passes 16 bits, also 255.
inline __m128i norm_scale8(__m128i w, __m128i q) {
    const __m128i lo = _mm_mullo_epi16(w, q), hi = _mm_mulhi_epu16(w, q);
    const __m128i t = _mm_srli_epi16(_mm_adds_epu16(lo, _mm_set1_epi16(128)), 8);
    const __m128i big = _mm_andnot_si128(_mm_cmpeq_epi16(hi, _mm_setzero_si128()), _mm_set1_epi16(255));
    return _mm_or_si128(t, big);
}

// The reciprocal table entries of 4 sums: 65536 / max(s, 1) in float is
// exact once truncated for every s up to 765 (each quotient is either whole
// or at least 1/765 from the next whole number, several float steps), and
// the later unsigned 16-bit pack turns the 65536 of s <= 1 into the table's
// 65535.  The quotients are in 85..65536, so the conversion never overflows.
inline __m128i recip4(__m128i s32) {
    const __m128 f = _mm_cvtepi32_ps(_mm_max_epi32(s32, _mm_set1_epi32(1)));
    return _mm_cvttps_epi32(_mm_div_ps(_mm_set1_ps(65536.0f), f));
}

// The reciprocals of eight weight sums (16-bit lanes, at most 765), in order:
// the unpacks and the pack keep lanes 0..3 and 4..7 apart.
inline __m128i recip8_sums(__m128i s) {
    const __m128i z = _mm_setzero_si128();
    return _mm_packus_epi32(recip4(_mm_unpacklo_epi16(s, z)), recip4(_mm_unpackhi_epi16(s, z)));
}

// The three weights of eight pixels (16-bit lanes) normalised together.
inline void normalize_w8(__m128i *a, __m128i *b, __m128i *c) {
    const __m128i q = recip8_sums(_mm_add_epi16(_mm_add_epi16(*a, *b), *c));
    *a = norm_scale8(*a, q);
    *b = norm_scale8(*b, q);
    *c = norm_scale8(*c, q);
}

// Eight pixels of the three maps, in place.
inline void normalize8(uint8_t *w0, uint8_t *w1, uint8_t *w2) {
    __m128i a = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)w0));
    __m128i b = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)w1));
    __m128i c = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)w2));
    normalize_w8(&a, &b, &c);
    const __m128i z = _mm_setzero_si128();
    _mm_storel_epi64((__m128i *)w0, _mm_packus_epi16(a, z));
    _mm_storel_epi64((__m128i *)w1, _mm_packus_epi16(b, z));
    _mm_storel_epi64((__m128i *)w2, _mm_packus_epi16(c, z));
}

// curve[v] of 16 bytes through 16 byte shuffles: after k steps of -16 the
// values of the k-th group of 16 are 0..15 and index table k; the saturating
// +0x70 sets bit 7 (a zero lane) for every other value, wrapped ones included.
inline __m128i curve16(const uint8_t *curve, __m128i v) {
    __m128i r = _mm_setzero_si128();
    const __m128i bias = _mm_set1_epi8(0x70), step = _mm_set1_epi8(16);
    for (int k = 0; k < 16; ++k) {
        r = _mm_or_si128(r, _mm_shuffle_epi8(_mm_loadu_si128((const __m128i *)(curve + 16 * k)), _mm_adds_epu8(v, bias)));
        v = _mm_sub_epi8(v, step);
    }
    return r;
}

// Eight weights min(255, curve * mask) from their curve values, as 16-bit
// lanes; without a mask (every byte 1) the curve values themselves.
inline __m128i gate8(__m128i c8, const uint8_t *mask) {
    if (!mask) return _mm_cvtepu8_epi16(c8);
    const __m128i p = _mm_mullo_epi16(_mm_cvtepu8_epi16(c8), _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)mask)));
    return _mm_min_epu16(p, _mm_set1_epi16(255));
}

// One frame's weights of 16 pixels (lo: the first 8) and of 8 pixels.
// Callers pass a null mask as a constant so the test folds away.
inline void frame_weights16(const uint8_t *curve, const uint8_t *luma, const uint8_t *mask, __m128i *lo, __m128i *hi) {
    const __m128i c = curve16(curve, _mm_loadu_si128((const __m128i *)luma));
    *lo = gate8(c, mask);
    *hi = gate8(_mm_srli_si128(c, 8), mask ? mask + 8 : nullptr);
}
inline __m128i frame_weights8(const uint8_t *curve, const uint8_t *luma, const uint8_t *mask) {
    return gate8(curve16(curve, _mm_loadl_epi64((const __m128i *)luma)), mask);
}

// Row walk of the one-pass weight kernel: Step(curves, x, n, luma, mask, dst)
// weighs and normalises the three frames' pixels from x on and returns how
// many it did (a multiple of 8, none past n); the masks advance densely, luma
// and dst by the pitch.
typedef int (*fused_step_fn)(const uint8_t *curves, int x, int n, const uint8_t *const *l, const uint8_t *const *m,
                             uint8_t *const *d);
template <bool Masked, fused_step_fn Step> decl_weight_fused_fn(fused_rows) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    uint8_t *d[3] = {dst[0], dst[1], dst[2]};
    const uint8_t *l[3] = {luma[0], luma[1], luma[2]};
    const uint8_t *m[3] = {Masked ? mask[0] : nullptr, Masked ? mask[1] : nullptr, Masked ? mask[2] : nullptr};
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < n;) x += Step(curves, x, n, l, m, d);
        for (int f = 0; f < 3; ++f) {
            l[f] += next;
            d[f] += next;
            if (Masked) m[f] += n;
        }
    }
}

// One step of the row walk: 16 pixels while they last, then 8.
template <bool Masked>
inline int fused_block16(const uint8_t *curves, int x, int n, const uint8_t *const *l, const uint8_t *const *m,
                      uint8_t *const *d) {
    __m128i lo[3], hi[3];
    if (x + 16 <= n) {
        for (int f = 0; f < 3; ++f) frame_weights16(curves + 256 * f, l[f] + x, Masked ? m[f] + x : nullptr, &lo[f], &hi[f]);
        normalize_w8(&lo[0], &lo[1], &lo[2]);
        normalize_w8(&hi[0], &hi[1], &hi[2]);
        for (int f = 0; f < 3; ++f) _mm_storeu_si128((__m128i *)(d[f] + x), _mm_packus_epi16(lo[f], hi[f]));
        return 16;
    }
    for (int f = 0; f < 3; ++f) lo[f] = frame_weights8(curves + 256 * f, l[f] + x, Masked ? m[f] + x : nullptr);
    normalize_w8(&lo[0], &lo[1], &lo[2]);
    for (int f = 0; f < 3; ++f) _mm_storel_epi64((__m128i *)(d[f] + x), _mm_packus_epi16(lo[f], _mm_setzero_si128()));
    return 8;
}

} // namespace
