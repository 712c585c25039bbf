// SSE4.1 bitmap rows of the two finest levels: 32 samples per word pair,
// compared as bytes and collected with movemask.
#include <smmintrin.h>

#include "registration/reg_dsp.h"
#include "registration/x86/bitmap_x86.h"

namespace {

// 16 samples in reverse order, so that the mask's bit 15 is the first one
// (the words hold their first sample in bit 31).
inline void masks16(__m128i v, __m128i med, __m128i tol, uint32_t *t, uint32_t *e) {
    v = _mm_shuffle_epi8(v, _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
    const __m128i le = _mm_cmpeq_epi8(_mm_max_epu8(v, med), med); // sample <= median
    const __m128i diff = _mm_or_si128(_mm_subs_epu8(v, med), _mm_subs_epu8(med, v));
    *t = ~(uint32_t)_mm_movemask_epi8(le) & 0xFFFF;
    *e = (uint32_t)_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_max_epu8(diff, tol), diff));
}

// Samples 16k .. 16k + 15 of a level-1 row: the even bytes of 32.
inline __m128i even16(const uint8_t *p) {
    const __m128i lo = _mm_set1_epi16(0xFF);
    return _mm_packus_epi16(_mm_and_si128(_mm_loadu_si128((const __m128i *)p), lo),
                            _mm_and_si128(_mm_loadu_si128((const __m128i *)(p + 16)), lo));
}

template <int Level>
decl_bitmap_row_fn(bitmap_row_sse41) {
    const __m128i med = _mm_set1_epi8((char)median), tol = _mm_set1_epi8((char)tolerance);
    const unsigned full = width >> 5;
    for (unsigned k = 0; k < full; ++k) {
        const uint8_t *p = src + ((size_t)k << (5 + Level));
        const __m128i a = Level == 0 ? _mm_loadu_si128((const __m128i *)p) : even16(p);
        const __m128i b = Level == 0 ? _mm_loadu_si128((const __m128i *)(p + 16)) : even16(p + 32);
        uint32_t ta, ea, tb, eb;
        masks16(a, med, tol, &ta, &ea);
        masks16(b, med, tol, &tb, &eb);
        dst[2 * k] = ta << 16 | tb;
        dst[2 * k + 1] = ea << 16 | eb;
    }
    if (width & 31) bitmap_tail<Level>(src, full << 5, width, median, tolerance, dst + 2 * full);
}

} // namespace

void reg_dsp_init_sse41(RegDsp *dsp) {
    dsp->bitmap_row[0] = bitmap_row_sse41<0>;
    dsp->bitmap_row[1] = bitmap_row_sse41<1>;
}
