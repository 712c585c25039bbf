// AVX2 tone mapping: curve and gain through 32-bit gathers, 16 columns of a
// row pair per step.  Columns with a value outside the curve's input range
// (the gain then needs a division) take the scalar path.
#include <immintrin.h>
#include <string.h>

#include "tone/tone_dsp.h"

namespace {

// 16 lanes of 0..65535 (as 32-bit halves a: lanes 0..7, b: 8..15) to 16-bit
// lanes in order: the pack interleaves the 128-bit halves.
inline __m256i pack32to16(__m256i a, __m256i b) { return _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xD8); }
inline __m128i pack16to8(__m256i v) { return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)); }

struct Row16 {
    __m256i ia, ib; // curve indices of columns 0..7 and 8..15
};

// Curve indices of 16 values; false when one of them is outside lo..hi.
inline bool row_indices(Row16 *r, const int16_t *p, __m256i lo, __m256i hi) {
    const __m256i v = _mm256_loadu_si256((const __m256i *)p);
    const __m256i vc = _mm256_min_epi16(_mm256_max_epi16(v, lo), hi);
    if (_mm256_movemask_epi8(_mm256_cmpeq_epi16(v, vc)) != -1) return false;
    const __m256i i = _mm256_sub_epi16(vc, lo);
    r->ia = _mm256_cvtepi16_epi32(_mm256_castsi256_si128(i));
    r->ib = _mm256_cvtepi16_epi32(_mm256_extracti128_si256(i, 1));
    return true;
}

// Writes the 16 output luma bytes; returns the gains of columns 0..7 and 8..15.
inline void row_out(uint8_t *o, const Row16 &r, const int32_t *lut32, const int32_t *gain, __m256i *ga, __m256i *gb) {
    const __m256i ya = _mm256_i32gather_epi32((const int *)lut32, r.ia, 4);
    const __m256i yb = _mm256_i32gather_epi32((const int *)lut32, r.ib, 4);
    _mm_storeu_si128((__m128i *)o, pack16to8(pack32to16(ya, yb)));
    *ga = _mm256_i32gather_epi32((const int *)gain, r.ia, 4);
    *gb = _mm256_i32gather_epi32((const int *)gain, r.ib, 4);
}

// tone_chroma of 8 values (32-bit d) with their block sums.
inline __m256i chroma_low16(__m256i d, __m256i s) {
    const __m256i p = _mm256_mullo_epi32(d, s); // wraps like the reference's unsigned product
    return _mm256_and_si256(_mm256_srai_epi32(p, 13), _mm256_set1_epi32(0xFFFF)); // kept in 16 bits
}

decl_tone_map_fn(tone_map_avx2) {
    // The curve widened to 32 bits for the gather (a byte gather would read
    // past the table).
    alignas(32) int32_t lut32[512];
    const int span = c->hi - c->lo + 1;
    for (int i = 0; i < span; ++i) lut32[i] = c->lut[i];
    const __m256i lo = _mm256_set1_epi16(c->lo), hi = _mm256_set1_epi16(c->hi);
    const __m256i dup_a = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3), dup_b = _mm256_setr_epi32(4, 4, 5, 5, 6, 6, 7, 7);
    const int n16 = width8 & ~15;
    for (int r = 0; r < row_pairs; ++r) {
        const int16_t *l0 = luma + 2 * r * luma_stride, *l1 = l0 + luma_stride;
        uint8_t *o0 = out_luma + 2 * r * out_pitch, *o1 = o0 + out_pitch;
        const int16_t *cin = chroma + r * chroma_stride;
        uint8_t *cout = out_chroma + r * out_pitch;
        for (int x = 0; x < n16; x += 16) {
            Row16 r0, r1;
            if (!row_indices(&r0, l0 + x, lo, hi) || !row_indices(&r1, l1 + x, lo, hi)) {
                tone_map_cols(o0, o1, cout, l0, l1, cin, x, x + 16, c);
                continue;
            }
            __m256i g0a, g0b, g1a, g1b;
            row_out(o0 + x, r0, lut32, c->gain, &g0a, &g0b);
            row_out(o1 + x, r1, lut32, c->gain, &g1a, &g1b);
            // Block sums of pairs 0..7: the horizontal add works per 128-bit half.
            const __m256i s = _mm256_permute4x64_epi64(
                _mm256_hadd_epi32(_mm256_add_epi32(g0a, g1a), _mm256_add_epi32(g0b, g1b)), 0xD8);
            const __m256i d = _mm256_loadu_si256((const __m256i *)(cin + x));
            const __m256i ta = chroma_low16(_mm256_cvtepi16_epi32(_mm256_castsi256_si128(d)),
                                            _mm256_permutevar8x32_epi32(s, dup_a));
            const __m256i tb = chroma_low16(_mm256_cvtepi16_epi32(_mm256_extracti128_si256(d, 1)),
                                            _mm256_permutevar8x32_epi32(s, dup_b));
            const __m256i u = _mm256_add_epi16(pack32to16(ta, tb), _mm256_set1_epi16(256));
            _mm_storeu_si128((__m128i *)(cout + x), pack16to8(_mm256_srai_epi16(u, 1)));
        }
        tone_map_cols(o0, o1, cout, l0, l1, cin, n16, width8, c);
    }
}

// The SSE4.1 statistics at 16 values per vector: lane i of the 32-bit
// accumulators still holds a part of partial i mod 4.
decl_tone_stats_fn(tone_stats_avx2) {
    __m256i su = _mm256_setzero_si256(), so = su, qu = su, qo = su, nu = su, no = su;
    const __m256i zero = _mm256_setzero_si256(), top = _mm256_set1_epi16(255), one = _mm256_set1_epi16(1);
    for (int y = 0; y < rows; ++y) {
        const int16_t *p = luma + y * stride;
        __m256i cu = zero, co = zero; // per-row counts, at most width16 / 16 per lane
        for (int x = 0; x < width16; x += 16) {
            const __m256i v = _mm256_loadu_si256((const __m256i *)(p + x));
            const __m256i mu = _mm256_cmpgt_epi16(zero, v), mo = _mm256_cmpgt_epi16(v, top);
            if (_mm256_testz_si256(_mm256_or_si256(mu, mo), _mm256_set1_epi8(-1))) continue;
            cu = _mm256_sub_epi16(cu, mu);
            co = _mm256_sub_epi16(co, mo);
            const __m256i u = _mm256_and_si256(v, mu), o = _mm256_and_si256(v, mo);
            su = _mm256_add_epi32(su, _mm256_add_epi32(_mm256_cvtepi16_epi32(_mm256_castsi256_si128(u)),
                                                       _mm256_cvtepi16_epi32(_mm256_extracti128_si256(u, 1))));
            so = _mm256_add_epi32(so, _mm256_add_epi32(_mm256_cvtepi16_epi32(_mm256_castsi256_si128(o)),
                                                       _mm256_cvtepi16_epi32(_mm256_extracti128_si256(o, 1))));
            // Per 128-bit half the unpacks give columns 0..3 / 4..7 and 8..11 / 12..15.
            const __m256i lo = _mm256_mullo_epi16(u, u), hi = _mm256_mulhi_epi16(u, u);
            qu = _mm256_add_epi32(qu, _mm256_add_epi32(_mm256_unpacklo_epi16(lo, hi), _mm256_unpackhi_epi16(lo, hi)));
            // Two squares of at most 32767^2 each sum below 2^31.
            const __m256i q = _mm256_madd_epi16(o, o);
            qo = _mm256_add_epi64(qo, _mm256_add_epi64(_mm256_cvtepu32_epi64(_mm256_castsi256_si128(q)),
                                                       _mm256_cvtepu32_epi64(_mm256_extracti128_si256(q, 1))));
        }
        nu = _mm256_add_epi32(nu, _mm256_madd_epi16(cu, one));
        no = _mm256_add_epi32(no, _mm256_madd_epi16(co, one));
    }
    alignas(32) uint32_t a[6][8];
    alignas(32) uint64_t q64[4];
    _mm256_store_si256((__m256i *)a[0], su);
    _mm256_store_si256((__m256i *)a[1], so);
    _mm256_store_si256((__m256i *)a[2], qu);
    _mm256_store_si256((__m256i *)a[3], nu);
    _mm256_store_si256((__m256i *)a[4], no);
    _mm256_store_si256((__m256i *)q64, qo);
    for (int i = 0; i < 8; ++i) acc->under_count += a[3][i], acc->over_count += a[4][i];
    for (int i = 0; i < 4; ++i) {
        acc->under_sum[i] += a[0][i] + a[0][i + 4];
        acc->over_sum[i] += a[1][i] + a[1][i + 4];
        acc->under_sq[i] += a[2][i] + a[2][i + 4];
    }
    acc->over_sq += q64[0] + q64[1] + q64[2] + q64[3];
}

} // namespace

void tone_dsp_init_avx2(ToneDsp *dsp) {
    dsp->stats = tone_stats_avx2;
    dsp->map = tone_map_avx2;
}
