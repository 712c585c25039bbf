// Steps shared by the SSE4.1 and AVX2 weight kernels.  Each including file
// gets its own copy (internal linkage), compiled with that file's flags.
#pragma once
#include <smmintrin.h>
#include <stdint.h>

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

// Eight pixels of the three maps, in place.
inline void normalize8(uint8_t *w0, uint8_t *w1, uint8_t *w2) {
    const __m128i a = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)w0));
    const __m128i b = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)w1));
    const __m128i c = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)w2));
    const __m128i s = _mm_add_epi16(_mm_add_epi16(a, b), c);
    const __m128i q = _mm_packus_epi32(recip4(_mm_cvtepu16_epi32(s)), recip4(_mm_unpackhi_epi16(s, _mm_setzero_si128())));
    const __m128i z = _mm_setzero_si128();
    _mm_storel_epi64((__m128i *)w0, _mm_packus_epi16(norm_scale8(a, q), z));
    _mm_storel_epi64((__m128i *)w1, _mm_packus_epi16(norm_scale8(b, q), z));
    _mm_storel_epi64((__m128i *)w2, _mm_packus_epi16(norm_scale8(c, q), z));
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

// Eight weights min(255, curve * mask) from their curve values.
inline __m128i gate8(__m128i c8, const uint8_t *mask) {
    const __m128i p = _mm_mullo_epi16(_mm_cvtepu8_epi16(c8), _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)mask)));
    return _mm_min_epu16(p, _mm_set1_epi16(255));
}

} // namespace
