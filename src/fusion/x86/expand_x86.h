// Expand steps shared by the SSE4.1 and AVX2 files (internal copies per
// file): the vertical expand of the luma band and collapse, where output row
// y takes scratch rows ra, rb, rc with weights wa, wb, wc (expand_taps), and
// the horizontal expand of a row.
#pragma once
#include <smmintrin.h>
#ifdef __AVX2__
#include <immintrin.h>
#endif
#include <stddef.h>
#include <stdint.h>

#include "fusion/fusion_dsp.h"

namespace {

// E of eight columns, 16-bit (wrapping for the collapse; the band's E is at
// most 8 * 2040 and never wraps).
inline __m128i expand_e8(const int16_t *a, const int16_t *b, const int16_t *c, __m128i wa, __m128i wb, __m128i wc) {
    const __m128i pa = _mm_mullo_epi16(_mm_loadu_si128((const __m128i *)a), wa);
    const __m128i pb = _mm_mullo_epi16(_mm_loadu_si128((const __m128i *)b), wb);
    const __m128i pc = _mm_mullo_epi16(_mm_loadu_si128((const __m128i *)c), wc);
    return _mm_add_epi16(_mm_add_epi16(pa, pb), pc);
}

// (E + 32) >> 6 of a signed 16-bit E, as if done in 32 bits: the rounding
// carry is bit 5 of E.
inline __m128i round_shift6(__m128i e) {
    return _mm_add_epi16(_mm_srai_epi16(e, 6), _mm_and_si128(_mm_srli_epi16(e, 5), _mm_set1_epi16(1)));
}

// Horizontal expand of pair-interleaved chroma: a, b, c are pairs k-1, k,
// k+1 of four pairs widened to 16 bits; the even output pairs a + 6b + c and
// the odd ones 4b + 4c (16-bit wrap, as the collapse keeps) alternate as
// 32-bit units, pairs 2k, 2k+1 of k = 0, 1 in lo and of k = 2, 3 in hi.
// The 6b is shifts and adds: a 16-bit multiply costs more here.
inline void expand_pairs4(__m128i a, __m128i b, __m128i c, __m128i *lo, __m128i *hi) {
    const __m128i even = _mm_add_epi16(_mm_add_epi16(a, c), _mm_slli_epi16(_mm_add_epi16(_mm_add_epi16(b, b), b), 1));
    const __m128i odd = _mm_slli_epi16(_mm_add_epi16(b, c), 2);
    *lo = _mm_unpacklo_epi32(even, odd);
    *hi = _mm_unpackhi_epi32(even, odd);
}

// One collapse step of four 16-bit source pairs at element i of row q (read
// from i - 2 to i + 9) into the eight output pairs at 2 i of dst.
inline void collapse_pairs4(int16_t *dst, const int16_t *q, int i) {
    __m128i lo, hi;
    expand_pairs4(_mm_loadu_si128((const __m128i *)(q + i - 2)), _mm_loadu_si128((const __m128i *)(q + i)),
                  _mm_loadu_si128((const __m128i *)(q + i + 2)), &lo, &hi);
    _mm_storeu_si128((__m128i *)(dst + 2 * i), lo);
    _mm_storeu_si128((__m128i *)(dst + 2 * i + 8), hi);
}

#ifdef __AVX2__
// The same at 16 lanes, for single columns (Unit 16: even and odd outputs
// interleave as 16-bit units) and for chroma pairs (Unit 32).  The unpacks work per 128-bit half, so the
// halves are swapped back into order: out0 takes the first eight lanes'
// outputs, out1 the last eight's.
template <int Unit> inline void expand_h16(__m256i a, __m256i b, __m256i c, __m256i *out0, __m256i *out1) {
    const __m256i even = _mm256_add_epi16(_mm256_add_epi16(a, c), _mm256_slli_epi16(_mm256_add_epi16(_mm256_add_epi16(b, b), b), 1));
    const __m256i odd = _mm256_slli_epi16(_mm256_add_epi16(b, c), 2);
    const __m256i lo = Unit == 16 ? _mm256_unpacklo_epi16(even, odd) : _mm256_unpacklo_epi32(even, odd);
    const __m256i hi = Unit == 16 ? _mm256_unpackhi_epi16(even, odd) : _mm256_unpackhi_epi32(even, odd);
    *out0 = _mm256_permute2x128_si256(lo, hi, 0x20);
    *out1 = _mm256_permute2x128_si256(lo, hi, 0x31);
}
#endif

} // namespace
