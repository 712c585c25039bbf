// Steps shared by the SSE4.1 and AVX2 chroma kernels.  Each including file
// gets its own copy (internal linkage), compiled with that file's flags.
#pragma once
#include <smmintrin.h>
#include <stdint.h>
#include <string.h>

namespace {

// Eight band values: E + 32 from two multiply-adds in 32 bits (exact for any
// 16-bit h), shifted, narrowed to 16 bits and taken from g with 16-bit wrap,
// which leaves the same low 16 bits as the reference's 32-bit difference.
inline __m128i band8(const int16_t *ha, const int16_t *hb, const int16_t *hc, const int8_t *g, __m128i wab,
                     __m128i wc32) {
    const __m128i a = _mm_loadu_si128((const __m128i *)ha), b = _mm_loadu_si128((const __m128i *)hb);
    const __m128i c = _mm_loadu_si128((const __m128i *)hc), one = _mm_set1_epi16(1);
    __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(a, b), wab), _mm_madd_epi16(_mm_unpacklo_epi16(c, one), wc32));
    __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(a, b), wab), _mm_madd_epi16(_mm_unpackhi_epi16(c, one), wc32));
    const __m128i low = _mm_set1_epi32(0xFFFF);
    lo = _mm_and_si128(_mm_srai_epi32(lo, 6), low);
    hi = _mm_and_si128(_mm_srai_epi32(hi, 6), low);
    int64_t g8;
    memcpy(&g8, g, 8);
    return _mm_sub_epi16(_mm_cvtepi8_epi16(_mm_cvtsi64_si128(g8)), _mm_packus_epi32(lo, hi));
}

// Multiplier pairs (wa, wb) and (wc, 32) of a row's taps.
inline __m128i taps2_128(int a, int b) { return _mm_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16)); }

// Horizontal reduce, 8 values (4 output pairs centred on source pairs 2k):
// pairs as 16-bit units, one byte shuffle splits 16 bytes into the even
// pairs (low half) and the odd ones (high half).  Loads at -4, 0 and +2
// bytes from the first centre cover exactly bytes -4 .. 17.  The int8 sums
// stay within 16 bits.
inline __m128i split_pairs(__m128i v) {
    return _mm_shuffle_epi8(v, _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15));
}
inline __m128i reduce_h8(const int8_t *p) {
    const __m128i x = split_pairs(_mm_loadu_si128((const __m128i *)(p - 4)));
    const __m128i w = split_pairs(_mm_loadu_si128((const __m128i *)p));
    const __m128i z = split_pairs(_mm_loadu_si128((const __m128i *)(p + 2)));
    const __m128i m2 = _mm_cvtepi8_epi16(x), m1 = _mm_cvtepi8_epi16(_mm_srli_si128(x, 8));
    const __m128i c0 = _mm_cvtepi8_epi16(w), p1 = _mm_cvtepi8_epi16(_mm_srli_si128(w, 8));
    const __m128i p2 = _mm_cvtepi8_epi16(_mm_srli_si128(z, 8));
    const __m128i s = _mm_add_epi16(_mm_add_epi16(m2, p2), _mm_slli_epi16(_mm_add_epi16(m1, p1), 2));
    return _mm_add_epi16(s, _mm_mullo_epi16(c0, _mm_set1_epi16(6)));
}

// Vertical reduce: five source rows (missing ones repeated with weight 0)
// and the weights as multiply-add pairs (w0, w1), (w2, w3), (w4, 128).
struct ReduceRows {
    const int16_t *r[5];
    int w[5];
};
inline ReduceRows reduce_rows(const int16_t *c, int n, int j, int rows) {
    if (j == 0) return {{c, c + n, c + 2 * n, c, c}, {6, 8, 2, 0, 0}};
    if (j == rows - 1) return {{c - 2 * n, c - n, c, c + n, c}, {1, 4, 7, 4, 0}};
    return {{c - 2 * n, c - n, c, c + n, c + 2 * n}, {1, 4, 6, 4, 1}};
}

// Eight sums (exact in 32 bits), shifted and cut to their low 8 bits.
inline __m128i reduce_v8(const ReduceRows &s, int i, __m128i w01, __m128i w23, __m128i w4r) {
    const __m128i a = _mm_loadu_si128((const __m128i *)(s.r[0] + i)), b = _mm_loadu_si128((const __m128i *)(s.r[1] + i));
    const __m128i c = _mm_loadu_si128((const __m128i *)(s.r[2] + i)), d = _mm_loadu_si128((const __m128i *)(s.r[3] + i));
    const __m128i e = _mm_loadu_si128((const __m128i *)(s.r[4] + i)), one = _mm_set1_epi16(1);
    __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(a, b), w01), _mm_madd_epi16(_mm_unpacklo_epi16(c, d), w23));
    __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(a, b), w01), _mm_madd_epi16(_mm_unpackhi_epi16(c, d), w23));
    lo = _mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi16(e, one), w4r));
    hi = _mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi16(e, one), w4r));
    const __m128i low = _mm_set1_epi32(0xFF);
    const __m128i v = _mm_packus_epi32(_mm_and_si128(_mm_srai_epi32(lo, 8), low), _mm_and_si128(_mm_srai_epi32(hi, 8), low));
    return _mm_packus_epi16(v, v);
}

} // namespace
