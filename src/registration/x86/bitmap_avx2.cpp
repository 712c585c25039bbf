// AVX2 bitmap rows of the three finest levels: one word pair per vector.
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
        } else if (Level == 2) {
            // Byte 0 of every 32-bit lane of four vectors; the two packs leave
            // groups of four samples in the order 0 4 8 12 16 20 24 28 (in
            // units of four samples: 0-3 at 0, 8-11 at 1, ...), and the
            // permute puts them in the swapped-halves order of level 0.
            const __m256i m = _mm256_set1_epi32(0xFF);
            const __m256i a = _mm256_and_si256(_mm256_loadu_si256((const __m256i *)p), m);
            const __m256i b = _mm256_and_si256(_mm256_loadu_si256((const __m256i *)(p + 32)), m);
            const __m256i c = _mm256_and_si256(_mm256_loadu_si256((const __m256i *)(p + 64)), m);
            const __m256i d = _mm256_and_si256(_mm256_loadu_si256((const __m256i *)(p + 96)), m);
            v = _mm256_packus_epi16(_mm256_packus_epi32(a, b), _mm256_packus_epi32(c, d));
            v = _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(2, 6, 3, 7, 0, 4, 1, 5));
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

// Bit count of each 64-bit lane: nibble counts by byte shuffle, summed by
// sad against zero.
inline __m256i popcount64(__m256i v) {
    const __m256i tab = _mm256_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4,
                                         0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
    const __m256i nib = _mm256_set1_epi8(0x0F);
    const __m256i c = _mm256_add_epi8(_mm256_shuffle_epi8(tab, _mm256_and_si256(v, nib)),
                                      _mm256_shuffle_epi8(tab, _mm256_and_si256(_mm256_srli_epi16(v, 4), nib)));
    return _mm256_sad_epu8(c, _mm256_setzero_si256());
}

// Four word pairs per step: words {t, e} sit in the low and high halves of
// each 64-bit lane, so d = (Ft ^ Mt) & (Fe & Me moved down 32 bits) lands in
// the low half with a zero high half.
template <bool StoreDiff>
uint32_t row_error_avx2(const uint32_t *fixed, const uint32_t *moving, unsigned width_words, unsigned shift,
                        uint32_t *diff) {
    const __m128i sl = _mm_cvtsi32_si128((int)shift), sr = _mm_cvtsi32_si128((int)(32 - shift));
    const __m256i low = _mm256_set1_epi64x(0xFFFFFFFF), pick = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    __m256i count = _mm256_setzero_si256();
    unsigned k = 0;
    for (; k + 4 <= width_words; k += 4) {
        const __m256i f = _mm256_loadu_si256((const __m256i *)(fixed + 2 * k));
        __m256i m = _mm256_loadu_si256((const __m256i *)(moving + 2 * k));
        if (shift) // the next pair is read only when bits come from it
            m = _mm256_or_si256(_mm256_sll_epi32(m, sl),
                                _mm256_srl_epi32(_mm256_loadu_si256((const __m256i *)(moving + 2 * k + 2)), sr));
        const __m256i d = _mm256_and_si256(_mm256_and_si256(_mm256_xor_si256(f, m), low),
                                           _mm256_srli_epi64(_mm256_and_si256(f, m), 32));
        if (StoreDiff)
            _mm_storeu_si128((__m128i *)(diff + k), _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(d, pick)));
        count = _mm256_add_epi64(count, popcount64(d));
    }
    alignas(32) uint64_t c4[4];
    _mm256_store_si256((__m256i *)c4, count);
    uint32_t err = (uint32_t)(c4[0] + c4[1] + c4[2] + c4[3]);
    for (; k < width_words; ++k) {
        uint32_t mt = moving[2 * k], me = moving[2 * k + 1];
        if (shift) {
            mt = (mt << shift) | (moving[2 * k + 2] >> (32 - shift));
            me = (me << shift) | (moving[2 * k + 3] >> (32 - shift));
        }
        const uint32_t d = (fixed[2 * k] ^ mt) & fixed[2 * k + 1] & me;
        if (StoreDiff) diff[k] = d;
        err += (uint32_t)__builtin_popcount(d);
    }
    return err;
}

decl_bitmap_row_error_fn(bitmap_row_error_avx2) {
    return diff ? row_error_avx2<true>(fixed, moving, width_words, shift, diff)
                : row_error_avx2<false>(fixed, moving, width_words, shift, nullptr);
}

} // namespace

void reg_dsp_init_avx2(RegDsp *dsp) {
    dsp->bitmap_row_error = bitmap_row_error_avx2;
    dsp->bitmap_row[0] = bitmap_row_avx2<0>;
    dsp->bitmap_row[1] = bitmap_row_avx2<1>;
    dsp->bitmap_row[2] = bitmap_row_avx2<2>;
}
