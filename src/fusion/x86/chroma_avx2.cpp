// AVX2 chroma kernels.
#include <immintrin.h>
#include <string.h>

#include "fusion/chroma_dsp.h"
#include "fusion/x86/chroma_x86.h"
#include "fusion/x86/expand_x86.h"

namespace {

// Eight pair weights repeated for the two values of each pair.
inline __m256i pair_weights(const uint8_t *w) {
    int64_t bytes;
    memcpy(&bytes, w, 8);
    const __m128i v = _mm_cvtepu8_epi16(_mm_cvtsi64_si128(bytes));
    return _mm256_set_m128i(_mm_unpackhi_epi16(v, v), _mm_unpacklo_epi16(v, v));
}

// The SSE4.1 blend at 16 values per step; unpacks and pack all stay within
// the 128-bit halves, so the values come back in order.
decl_chroma_blend_fn(chroma_blend_avx2) {
    const int n = 2 * (int)((pairs + 7) & ~7);
    const __m256i one = _mm256_set1_epi16(1), round = _mm256_set1_epi16(128), low = _mm256_set1_epi32(0xFFFF);
    for (int y = 0; y < rows; ++y) {
        int16_t *p0 = b0 + y * stride;
        const int16_t *p1 = b1 + y * stride, *p2 = b2 + y * stride;
        const uint8_t *v0 = w0 + y * w_stride, *v1 = w1 + y * w_stride, *v2 = w2 + y * w_stride;
        for (int x = 0; x < n; x += 16) {
            const __m256i a = _mm256_loadu_si256((const __m256i *)(p0 + x));
            const __m256i b = _mm256_loadu_si256((const __m256i *)(p1 + x));
            const __m256i c = _mm256_loadu_si256((const __m256i *)(p2 + x));
            const int k = x >> 1;
            const __m256i wa = pair_weights(v0 + k), wb = pair_weights(v1 + k), wc = pair_weights(v2 + k);
            __m256i lo = _mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), _mm256_unpacklo_epi16(wa, wb));
            __m256i hi = _mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), _mm256_unpackhi_epi16(wa, wb));
            lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(c, one), _mm256_unpacklo_epi16(wc, round)));
            hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(c, one), _mm256_unpackhi_epi16(wc, round)));
            lo = _mm256_and_si256(_mm256_srai_epi32(lo, 8), low);
            hi = _mm256_and_si256(_mm256_srai_epi32(hi, 8), low);
            _mm256_storeu_si256((__m256i *)(p0 + x), _mm256_packus_epi32(lo, hi));
        }
    }
}

// band8 at 16 values per step; an odd count of 8-value groups ends on band8.
inline __m256i band16(const int16_t *ha, const int16_t *hb, const int16_t *hc, const int8_t *g, __m256i wab,
                      __m256i wc32) {
    const __m256i a = _mm256_loadu_si256((const __m256i *)ha), b = _mm256_loadu_si256((const __m256i *)hb);
    const __m256i c = _mm256_loadu_si256((const __m256i *)hc), one = _mm256_set1_epi16(1);
    __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), wab),
                                  _mm256_madd_epi16(_mm256_unpacklo_epi16(c, one), wc32));
    __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), wab),
                                  _mm256_madd_epi16(_mm256_unpackhi_epi16(c, one), wc32));
    const __m256i low = _mm256_set1_epi32(0xFFFF);
    lo = _mm256_and_si256(_mm256_srai_epi32(lo, 6), low);
    hi = _mm256_and_si256(_mm256_srai_epi32(hi, 6), low);
    const __m256i gv = _mm256_cvtepi8_epi16(_mm_loadu_si128((const __m128i *)g));
    return _mm256_sub_epi16(gv, _mm256_packus_epi32(lo, hi));
}

inline __m256i taps2(int a, int b) { return _mm256_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16)); }

decl_chroma_expand_band_fn(chroma_expand_band_avx2) {
    const int n = (values + 7) & ~7;
    const int hrows = rows >> 1, first = expand_v_first(y0);
    for (int y = y0; y < y1; ++y) {
        int16_t *b = band + y * band_stride;
        if (zero_edges && chroma_zero_row(y, rows)) {
            memset(b, 0, (size_t)n * sizeof *b);
            continue;
        }
        const ExpandTaps t = expand_taps(y, hrows);
        const int16_t *ha = h + (t.ra - first) * n, *hb = h + (t.rb - first) * n, *hc = h + (t.rc - first) * n;
        const int8_t *gr = g + y * g_stride;
        const __m256i wab = taps2(t.wa, t.wb), wc32 = taps2(t.wc, 32);
        int i = 0;
        for (; i + 16 <= n; i += 16)
            _mm256_storeu_si256((__m256i *)(b + i), band16(ha + i, hb + i, hc + i, gr + i, wab, wc32));
        if (i < n)
            _mm_storeu_si128((__m128i *)(b + i), band8(ha + i, hb + i, hc + i, gr + i, _mm256_castsi256_si128(wab),
                                                       _mm256_castsi256_si128(wc32)));
    }
}

// reduce_h8 at 16 values per step, one 128-bit half per 8 values; bytes
// sign-extended by an unpack with themselves and an arithmetic shift.
inline __m256i load2(const int8_t *lo, const int8_t *hi) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128((const __m128i *)lo)),
                                   _mm_loadu_si128((const __m128i *)hi), 1);
}
inline __m256i widen_lo(__m256i v) { return _mm256_srai_epi16(_mm256_unpacklo_epi8(v, v), 8); }
inline __m256i widen_hi(__m256i v) { return _mm256_srai_epi16(_mm256_unpackhi_epi8(v, v), 8); }

decl_chroma_reduce_h_fn(chroma_reduce_h_avx2) {
    const int n = (2 * (pairs >> 1) + 7) & ~7;
    const __m256i split = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15,
                                           0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
    for (int r = 0; r < rows; ++r, src += src_stride, dst += n) {
        pad_pairs_mirror(src, pairs);
        int i = 0;
        for (; i + 16 <= n; i += 16) {
            const int8_t *p = src + 2 * i;
            const __m256i x = _mm256_shuffle_epi8(load2(p - 4, p + 12), split);
            const __m256i w = _mm256_shuffle_epi8(load2(p, p + 16), split);
            const __m256i z = _mm256_shuffle_epi8(load2(p + 2, p + 18), split);
            const __m256i s = _mm256_add_epi16(_mm256_add_epi16(widen_lo(x), widen_hi(z)),
                                               _mm256_slli_epi16(_mm256_add_epi16(widen_hi(x), widen_hi(w)), 2));
            _mm256_storeu_si256((__m256i *)(dst + i), _mm256_add_epi16(s, _mm256_mullo_epi16(widen_lo(w), _mm256_set1_epi16(6))));
        }
        if (i < n) _mm_storeu_si128((__m128i *)(dst + i), reduce_h8(src + 2 * i));
    }
}

// reduce_v8 at 16 values per step.
decl_chroma_reduce_v_fn(chroma_reduce_v_avx2) {
    const int n = (values + 7) & ~7, first = reduce_v_first(y0);
    const __m256i one = _mm256_set1_epi16(1), low = _mm256_set1_epi32(0xFF);
    for (int j = y0; j < y1; ++j) {
        int8_t *out = dst + j * dst_stride;
        const ReduceRows s = reduce_rows(src + (2 * j - first) * n, n, j, rows);
        const __m256i w01 = taps2(s.w[0], s.w[1]), w23 = taps2(s.w[2], s.w[3]), w4r = taps2(s.w[4], 128);
        int i = 0;
        for (; i + 16 <= n; i += 16) {
            const __m256i a = _mm256_loadu_si256((const __m256i *)(s.r[0] + i));
            const __m256i b = _mm256_loadu_si256((const __m256i *)(s.r[1] + i));
            const __m256i c = _mm256_loadu_si256((const __m256i *)(s.r[2] + i));
            const __m256i d = _mm256_loadu_si256((const __m256i *)(s.r[3] + i));
            const __m256i e = _mm256_loadu_si256((const __m256i *)(s.r[4] + i));
            __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), w01),
                                          _mm256_madd_epi16(_mm256_unpacklo_epi16(c, d), w23));
            __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), w01),
                                          _mm256_madd_epi16(_mm256_unpackhi_epi16(c, d), w23));
            lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(e, one), w4r));
            hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(e, one), w4r));
            const __m256i v = _mm256_packus_epi32(_mm256_and_si256(_mm256_srai_epi32(lo, 8), low),
                                                  _mm256_and_si256(_mm256_srai_epi32(hi, 8), low));
            _mm_storeu_si128((__m128i *)(out + i), _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)));
        }
        if (i < n)
            _mm_storel_epi64((__m128i *)(out + i), reduce_v8(s, i, _mm256_castsi256_si128(w01),
                                                             _mm256_castsi256_si128(w23), _mm256_castsi256_si128(w4r)));
    }
}

// The 16-bit E of the collapse and its rounding shift (see round_shift6).
inline __m256i collapse_e16(const int16_t *a, const int16_t *b, const int16_t *c, __m256i wa, __m256i wb, __m256i wc) {
    const __m256i e = _mm256_add_epi16(_mm256_add_epi16(_mm256_mullo_epi16(_mm256_loadu_si256((const __m256i *)a), wa),
                                                        _mm256_mullo_epi16(_mm256_loadu_si256((const __m256i *)b), wb)),
                                       _mm256_mullo_epi16(_mm256_loadu_si256((const __m256i *)c), wc));
    return _mm256_add_epi16(_mm256_srai_epi16(e, 6), _mm256_and_si256(_mm256_srli_epi16(e, 5), _mm256_set1_epi16(1)));
}

decl_chroma_collapse_v_fn(chroma_collapse_v_avx2) {
    const int n = (values + 7) & ~7, hrows = rows >> 1, first = expand_v_first(y0);
    for (int y = y0; y < y1; ++y) {
        const ExpandTaps t = expand_taps(y, hrows);
        const int16_t *ha = h + (t.ra - first) * n, *hb = h + (t.rb - first) * n, *hc = h + (t.rc - first) * n;
        const __m256i wa = _mm256_set1_epi16(t.wa), wb = _mm256_set1_epi16(t.wb), wc = _mm256_set1_epi16(t.wc);
        int16_t *d = dst + y * stride;
        int i = 0;
        for (; i + 16 <= n; i += 16)
            _mm256_storeu_si256((__m256i *)(d + i), _mm256_add_epi16(_mm256_loadu_si256((const __m256i *)(d + i)),
                                                                     collapse_e16(ha + i, hb + i, hc + i, wa, wb, wc)));
        if (i < n) {
            const __m128i e = round_shift6(expand_e8(ha + i, hb + i, hc + i, _mm256_castsi256_si128(wa),
                                                     _mm256_castsi256_si128(wb), _mm256_castsi256_si128(wc)));
            _mm_storeu_si128((__m128i *)(d + i), _mm_add_epi16(_mm_loadu_si128((const __m128i *)(d + i)), e));
        }
    }
}

// Chroma expand, 8 source pairs (32 outputs) per step; reads as the SSE4.1
// kernel: bytes -2 .. 2 ceil8(src_pairs) + 1.
decl_chroma_expand_h_fn(chroma_expand_h_avx2) {
    const int pitch = (2 * dst_pairs + 7) & ~7, n = 2 * ((src_pairs + 7) & ~7), e = 2 * src_pairs;
    for (int j = 0; j < rows; ++j, src += src_stride, dst += pitch) {
        int8_t *q = src;
        pad_pairs_repeat(q, src_pairs);
        for (int i = 0; i < n; i += 16) {
            __m256i o0, o1;
            expand_h16<32>(_mm256_cvtepi8_epi16(_mm_loadu_si128((const __m128i *)(q + i - 2))),
                           _mm256_cvtepi8_epi16(_mm_loadu_si128((const __m128i *)(q + i))),
                           _mm256_cvtepi8_epi16(_mm_loadu_si128((const __m128i *)(q + i + 2))), &o0, &o1);
            _mm256_storeu_si256((__m256i *)(dst + 2 * i), o0);
            _mm256_storeu_si256((__m256i *)(dst + 2 * i + 16), o1);
        }
        odd_last_pair(dst, dst_pairs, q, e);
    }
}

// Collapse expand, 8 source pairs per step while whole, the last 4 pairs of
// an odd count of 8-value groups by the SSE4.1 step: reads elements
// -2 .. ceil8(2 src_pairs) + 1 and no further.
decl_chroma_collapse_h_fn(chroma_collapse_h_avx2) {
    const int pitch = (2 * dst_pairs + 7) & ~7, n = (2 * src_pairs + 7) & ~7, e = 2 * src_pairs;
    for (int j = 0; j < rows; ++j, src += src_stride, dst += pitch) {
        int16_t *q = src;
        pad_pairs_repeat(q, src_pairs);
        int i = 0;
        for (; i + 16 <= n; i += 16) {
            __m256i o0, o1;
            expand_h16<32>(_mm256_loadu_si256((const __m256i *)(q + i - 2)), _mm256_loadu_si256((const __m256i *)(q + i)),
                           _mm256_loadu_si256((const __m256i *)(q + i + 2)), &o0, &o1);
            _mm256_storeu_si256((__m256i *)(dst + 2 * i), o0);
            _mm256_storeu_si256((__m256i *)(dst + 2 * i + 16), o1);
        }
        if (i < n) {
            collapse_pairs4(dst, q, i);
        }
        odd_last_pair(dst, dst_pairs, q, e);
    }
}

} // namespace

void chroma_dsp_init_avx2(ChromaDsp *dsp) {
    dsp->expand_h = chroma_expand_h_avx2;
    dsp->collapse_h = chroma_collapse_h_avx2;
    dsp->collapse_v = chroma_collapse_v_avx2;
    dsp->reduce_h = chroma_reduce_h_avx2;
    dsp->reduce_v = chroma_reduce_v_avx2;
    dsp->expand_band = chroma_expand_band_avx2;
    dsp->blend = chroma_blend_avx2;
}
