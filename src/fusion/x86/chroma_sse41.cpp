// SSE4.1 chroma kernels.
#include <smmintrin.h>

#include "fusion/chroma_dsp.h"
#include "fusion/x86/chroma_x86.h"
#include "fusion/x86/expand_x86.h"

namespace {

// Eight values (four pairs) of the blend: each pair's weight is repeated for
// its two values, the three products summed by two multiply-adds (|sum| <
// 2^31), the rounding constant riding along as the third value's partner.
// The result keeps the low 16 bits of the arithmetic shift.
decl_chroma_blend_fn(chroma_blend_sse41) {
    const int n = 2 * (int)((pairs + 7) & ~7);
    const __m128i one = _mm_set1_epi16(1), round = _mm_set1_epi16(128), low = _mm_set1_epi32(0xFFFF);
    for (int y = 0; y < rows; ++y) {
        int16_t *p0 = b0 + y * stride;
        const int16_t *p1 = b1 + y * stride, *p2 = b2 + y * stride;
        const uint8_t *v0 = w0 + y * w_stride, *v1 = w1 + y * w_stride, *v2 = w2 + y * w_stride;
        for (int x = 0; x < n; x += 8) {
            const __m128i a = _mm_loadu_si128((const __m128i *)(p0 + x));
            const __m128i b = _mm_loadu_si128((const __m128i *)(p1 + x));
            const __m128i c = _mm_loadu_si128((const __m128i *)(p2 + x));
            const int k = x >> 1;
            __m128i wa = _mm_cvtepu8_epi16(_mm_cvtsi32_si128(*(const int *)(v0 + k)));
            __m128i wb = _mm_cvtepu8_epi16(_mm_cvtsi32_si128(*(const int *)(v1 + k)));
            __m128i wc = _mm_cvtepu8_epi16(_mm_cvtsi32_si128(*(const int *)(v2 + k)));
            wa = _mm_unpacklo_epi16(wa, wa);
            wb = _mm_unpacklo_epi16(wb, wb);
            wc = _mm_unpacklo_epi16(wc, wc);
            __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi16(a, b), _mm_unpacklo_epi16(wa, wb));
            __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi16(a, b), _mm_unpackhi_epi16(wa, wb));
            lo = _mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi16(c, one), _mm_unpacklo_epi16(wc, round)));
            hi = _mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi16(c, one), _mm_unpackhi_epi16(wc, round)));
            lo = _mm_and_si128(_mm_srai_epi32(lo, 8), low);
            hi = _mm_and_si128(_mm_srai_epi32(hi, 8), low);
            _mm_storeu_si128((__m128i *)(p0 + x), _mm_packus_epi32(lo, hi));
        }
    }
}

decl_chroma_expand_band_fn(chroma_expand_band_sse41) {
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
        const __m128i wab = taps2_128(t.wa, t.wb), wc32 = taps2_128(t.wc, 32);
        for (int i = 0; i < n; i += 8) _mm_storeu_si128((__m128i *)(b + i), band8(ha + i, hb + i, hc + i, gr + i, wab, wc32));
    }
}

decl_chroma_reduce_h_fn(chroma_reduce_h_sse41) {
    const int n = (2 * (pairs >> 1) + 7) & ~7;
    for (int r = 0; r < rows; ++r, src += src_stride, dst += n) {
        pad_pairs_mirror(src, pairs);
        for (int i = 0; i < n; i += 8) _mm_storeu_si128((__m128i *)(dst + i), reduce_h8(src + 2 * i));
    }
}

decl_chroma_reduce_v_fn(chroma_reduce_v_sse41) {
    const int n = (values + 7) & ~7, first = reduce_v_first(y0);
    for (int j = y0; j < y1; ++j) {
        int8_t *d = dst + j * dst_stride;
        const ReduceRows s = reduce_rows(src + (2 * j - first) * n, n, j, rows);
        const __m128i w01 = taps2_128(s.w[0], s.w[1]), w23 = taps2_128(s.w[2], s.w[3]), w4r = taps2_128(s.w[4], 128);
        for (int i = 0; i < n; i += 8) _mm_storel_epi64((__m128i *)(d + i), reduce_v8(s, i, w01, w23, w4r));
    }
}

decl_chroma_collapse_v_fn(chroma_collapse_v_sse41) {
    const int n = (values + 7) & ~7, hrows = rows >> 1, first = expand_v_first(y0);
    for (int y = y0; y < y1; ++y) {
        const ExpandTaps t = expand_taps(y, hrows);
        const int16_t *ha = h + (t.ra - first) * n, *hb = h + (t.rb - first) * n, *hc = h + (t.rc - first) * n;
        const __m128i wa = _mm_set1_epi16(t.wa), wb = _mm_set1_epi16(t.wb), wc = _mm_set1_epi16(t.wc);
        int16_t *d = dst + y * stride;
        for (int i = 0; i < n; i += 8) {
            const __m128i e = round_shift6(expand_e8(ha + i, hb + i, hc + i, wa, wb, wc));
            _mm_storeu_si128((__m128i *)(d + i), _mm_add_epi16(_mm_loadu_si128((const __m128i *)(d + i)), e));
        }
    }
}

// Chroma expand, 8 source pairs (32 outputs) per step: loads at pairs k-1,
// k and k+1 read bytes -2 .. 2 ceil8(src_pairs) + 1, the reference's extent.
decl_chroma_expand_h_fn(chroma_expand_h_sse41) {
    const int pitch = (2 * dst_pairs + 7) & ~7, n = 2 * ((src_pairs + 7) & ~7), e = 2 * src_pairs;
    for (int j = 0; j < rows; ++j, src += src_stride, dst += pitch) {
        int8_t *q = src;
        pad_pairs_repeat(q, src_pairs);
        for (int i = 0; i < n; i += 16) {
            const __m128i va = _mm_loadu_si128((const __m128i *)(q + i - 2));
            const __m128i vb = _mm_loadu_si128((const __m128i *)(q + i));
            const __m128i vc = _mm_loadu_si128((const __m128i *)(q + i + 2));
            __m128i o[4];
            expand_pairs4(_mm_cvtepi8_epi16(va), _mm_cvtepi8_epi16(vb), _mm_cvtepi8_epi16(vc), &o[0], &o[1]);
            expand_pairs4(_mm_cvtepi8_epi16(_mm_srli_si128(va, 8)), _mm_cvtepi8_epi16(_mm_srli_si128(vb, 8)),
                          _mm_cvtepi8_epi16(_mm_srli_si128(vc, 8)), &o[2], &o[3]);
            for (int m = 0; m < 4; ++m) _mm_storeu_si128((__m128i *)(dst + 2 * i + 8 * m), o[m]);
        }
        odd_last_pair(dst, dst_pairs, q, e);
    }
}

// Collapse expand, 4 source pairs (16 outputs) per step over ceil8(2 src_pairs)
// values: reads elements -2 .. ceil8(2 src_pairs) + 1.
decl_chroma_collapse_h_fn(chroma_collapse_h_sse41) {
    const int pitch = (2 * dst_pairs + 7) & ~7, n = (2 * src_pairs + 7) & ~7, e = 2 * src_pairs;
    for (int j = 0; j < rows; ++j, src += src_stride, dst += pitch) {
        int16_t *q = src;
        pad_pairs_repeat(q, src_pairs);
        for (int i = 0; i < n; i += 8) collapse_pairs4(dst, q, i);
        odd_last_pair(dst, dst_pairs, q, e);
    }
}

} // namespace

void chroma_dsp_init_sse41(ChromaDsp *dsp) {
    dsp->expand_h = chroma_expand_h_sse41;
    dsp->collapse_h = chroma_collapse_h_sse41;
    dsp->collapse_v = chroma_collapse_v_sse41;
    dsp->reduce_h = chroma_reduce_h_sse41;
    dsp->reduce_v = chroma_reduce_v_sse41;
    dsp->expand_band = chroma_expand_band_sse41;
    dsp->blend = chroma_blend_sse41;
}
