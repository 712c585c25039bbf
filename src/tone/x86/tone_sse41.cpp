// SSE4.1 overshoot statistics.
#include <smmintrin.h>

#include "tone/tone_dsp.h"

namespace {

// Accumulators: lane i of every 32-bit vector is a part of partial i (the
// reference's x mod 4), folded with wrapping adds at the end.
struct Acc {
    __m128i su = _mm_setzero_si128(), so = _mm_setzero_si128(), qu = _mm_setzero_si128();
    __m128i qo = _mm_setzero_si128(); // two 64-bit halves of the over-range squares
    __m128i nu = _mm_setzero_si128(), no = _mm_setzero_si128();
};

// Eight values (columns 0 mod 4 in lanes 0 and 4) with their range masks.
inline void add8(Acc &a, __m128i v, __m128i mu, __m128i mo) {
    const __m128i u = _mm_and_si128(v, mu), o = _mm_and_si128(v, mo);
    a.su = _mm_add_epi32(a.su, _mm_add_epi32(_mm_cvtepi16_epi32(u), _mm_cvtepi16_epi32(_mm_srli_si128(u, 8))));
    a.so = _mm_add_epi32(a.so, _mm_add_epi32(_mm_cvtepi16_epi32(o), _mm_cvtepi16_epi32(_mm_srli_si128(o, 8))));
    // v * v exact in 32 bits from its two 16-bit halves.
    const __m128i lo = _mm_mullo_epi16(u, u), hi = _mm_mulhi_epi16(u, u);
    a.qu = _mm_add_epi32(a.qu, _mm_add_epi32(_mm_unpacklo_epi16(lo, hi), _mm_unpackhi_epi16(lo, hi)));
    // Two squares of at most 32767^2 each sum below 2^31.
    const __m128i q = _mm_madd_epi16(o, o);
    a.qo = _mm_add_epi64(a.qo, _mm_add_epi64(_mm_cvtepu32_epi64(q), _mm_cvtepu32_epi64(_mm_srli_si128(q, 8))));
}

inline uint32_t lanes_sum(__m128i v) {
    v = _mm_add_epi32(v, _mm_srli_si128(v, 8));
    return (uint32_t)_mm_cvtsi128_si32(_mm_add_epi32(v, _mm_srli_si128(v, 4)));
}

decl_tone_stats_fn(tone_stats_sse41) {
    Acc a;
    const __m128i zero = _mm_setzero_si128(), top = _mm_set1_epi16(255);
    for (int y = 0; y < rows; ++y) {
        const int16_t *p = luma + y * stride;
        __m128i cu = zero, co = zero; // per-row counts, at most width16 / 8 per lane
        for (int x = 0; x < width16; x += 16) {
            const __m128i v0 = _mm_loadu_si128((const __m128i *)(p + x));
            const __m128i v1 = _mm_loadu_si128((const __m128i *)(p + x + 8));
            const __m128i u0 = _mm_cmplt_epi16(v0, zero), u1 = _mm_cmplt_epi16(v1, zero);
            const __m128i o0 = _mm_cmpgt_epi16(v0, top), o1 = _mm_cmpgt_epi16(v1, top);
            if (_mm_testz_si128(_mm_or_si128(_mm_or_si128(u0, u1), _mm_or_si128(o0, o1)), _mm_set1_epi8(-1))) continue;
            cu = _mm_sub_epi16(_mm_sub_epi16(cu, u0), u1);
            co = _mm_sub_epi16(_mm_sub_epi16(co, o0), o1);
            add8(a, v0, u0, o0);
            add8(a, v1, u1, o1);
        }
        a.nu = _mm_add_epi32(a.nu, _mm_madd_epi16(cu, _mm_set1_epi16(1)));
        a.no = _mm_add_epi32(a.no, _mm_madd_epi16(co, _mm_set1_epi16(1)));
    }
    alignas(16) uint32_t su[4], so[4], qu[4];
    _mm_store_si128((__m128i *)su, a.su);
    _mm_store_si128((__m128i *)so, a.so);
    _mm_store_si128((__m128i *)qu, a.qu);
    acc->under_count += lanes_sum(a.nu);
    acc->over_count += lanes_sum(a.no);
    for (int i = 0; i < 4; ++i) {
        acc->under_sum[i] += su[i];
        acc->under_sq[i] += qu[i];
        acc->over_sum[i] += so[i];
    }
    acc->over_sq += (uint64_t)_mm_cvtsi128_si64(a.qo) + (uint64_t)_mm_extract_epi64(a.qo, 1);
}

} // namespace

void tone_dsp_init_sse41(ToneDsp *dsp) { dsp->stats = tone_stats_sse41; }
