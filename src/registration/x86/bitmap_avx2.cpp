// AVX2 bitmap rows of the two finest levels: one word pair per vector.
#include <immintrin.h>

#include "registration/reg_dsp.h"
#include "registration/x86/bitmap_x86.h"

namespace {

template <int Level>
decl_bitmap_row_fn(bitmap_row_avx2) {
    const __m256i med = _mm256_set1_epi8((char)median), tol = _mm256_set1_epi8((char)tolerance);
    const __m256i rev = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0,
                                         15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    const __m256i lo = _mm256_set1_epi16(0xFF);
    const unsigned full = width >> 5;
    for (unsigned k = 0; k < full; ++k) {
        const uint8_t *p = src + ((size_t)k << (5 + Level));
        // The 32 samples with the 128-bit halves swapped, then reversed within
        // each: the first sample lands in the byte whose mask bit is 31.
        __m256i v;
        if (Level == 0) {
            v = _mm256_permute4x64_epi64(_mm256_loadu_si256((const __m256i *)p), 0x4E);
        } else {
            // The pack leaves samples 0-7, 16-23, 8-15, 24-31 in the four 64-bit parts.
            const __m256i a = _mm256_and_si256(_mm256_loadu_si256((const __m256i *)p), lo);
            const __m256i b = _mm256_and_si256(_mm256_loadu_si256((const __m256i *)(p + 32)), lo);
            v = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0x8D);
        }
        v = _mm256_shuffle_epi8(v, rev);
        const __m256i le = _mm256_cmpeq_epi8(_mm256_max_epu8(v, med), med); // sample <= median
        const __m256i diff = _mm256_or_si256(_mm256_subs_epu8(v, med), _mm256_subs_epu8(med, v));
        dst[2 * k] = ~(uint32_t)_mm256_movemask_epi8(le);
        dst[2 * k + 1] = (uint32_t)_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_max_epu8(diff, tol), diff));
    }
    if (width & 31) bitmap_tail<Level>(src, full << 5, width, median, tolerance, dst + 2 * full);
}

} // namespace

void reg_dsp_init_avx2(RegDsp *dsp) {
    dsp->bitmap_row[0] = bitmap_row_avx2<0>;
    dsp->bitmap_row[1] = bitmap_row_avx2<1>;
}
