// Vertical reduce of both pyramids, shared by the SSE4.1 and AVX2 files
// (internal copies per file).  The scratch sums are at most 16320 (weights)
// or 4080 (image), so they pass as signed 16-bit multiply-add inputs and
// every five-tap sum is exact in 32 bits.
#pragma once
#include <smmintrin.h>
#include <stdint.h>

#include "fusion/pyramid_rows.h"

namespace {

// Five scratch rows (missing ones repeated with weight 0) and their weights
// for output row k, whose centre row t[2k] is at c; the rounding constant
// rides with the fifth row.
struct ReduceTaps {
    const uint16_t *r[5];
    int w[5];
};
template <int C> inline ReduceTaps reduce_taps(const uint16_t *c, ptrdiff_t s, int k, int out_h) {
    if (k == 0) return {{c, c + s, c + 2 * s, c, c}, {C, 8, 2, 0, 0}};
    if (k == out_h - 1) return {{c - 2 * s, c - s, c, c + s, c}, {1, 4, C + 1, 4, 0}};
    return {{c - 2 * s, c - s, c, c + s, c + 2 * s}, {1, 4, C, 4, 1}};
}

inline __m128i mul_pair(int a, int b) { return _mm_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16)); }

// Eight outputs min(255, (sum + round) >> Shift).
template <int Shift>
inline __m128i reduce_v8(const ReduceTaps &t, int x, __m128i w01, __m128i w23, __m128i w4r) {
    const __m128i a = _mm_loadu_si128((const __m128i *)(t.r[0] + x)), b = _mm_loadu_si128((const __m128i *)(t.r[1] + x));
    const __m128i c = _mm_loadu_si128((const __m128i *)(t.r[2] + x)), d = _mm_loadu_si128((const __m128i *)(t.r[3] + x));
    const __m128i e = _mm_loadu_si128((const __m128i *)(t.r[4] + x)), one = _mm_set1_epi16(1);
    __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(a, b), w01), _mm_madd_epi16(_mm_unpacklo_epi16(c, d), w23));
    __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(a, b), w01), _mm_madd_epi16(_mm_unpackhi_epi16(c, d), w23));
    lo = _mm_srli_epi32(_mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi16(e, one), w4r)), Shift);
    hi = _mm_srli_epi32(_mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi16(e, one), w4r)), Shift);
    const __m128i v = _mm_packus_epi32(lo, hi); // saturating packs: the min with 255
    return _mm_packus_epi16(v, v);
}

// Horizontal reduce, eight outputs centred on p[0], p[2], ..., p[14]: loads
// at -2, 0 and +2 split into even and odd bytes as 16-bit lanes give the
// five taps, reading p[-2] .. p[17] only.  Sums stay within 16 bits.
template <int C> inline __m128i reduce_h8(const uint8_t *p) {
    const __m128i a = _mm_loadu_si128((const __m128i *)(p - 2)), b = _mm_loadu_si128((const __m128i *)p);
    const __m128i c = _mm_loadu_si128((const __m128i *)(p + 2)), even = _mm_set1_epi16(0xFF);
    const __m128i outer = _mm_add_epi16(_mm_and_si128(a, even), _mm_and_si128(c, even));
    const __m128i inner = _mm_add_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8));
    return _mm_add_epi16(_mm_add_epi16(outer, _mm_slli_epi16(inner, 2)),
                         _mm_mullo_epi16(_mm_and_si128(b, even), _mm_set1_epi16(C)));
}

} // namespace
