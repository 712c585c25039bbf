// The motion-row kernel for SSE4.1 (16 columns a step) and AVX2 (32), from
// one body over a small set of byte operations.  Each including file gets its
// own copy (internal linkage), compiled with that file's flags.
#pragma once
#include <immintrin.h>

#include "ghost/ghost_dsp.h"
#include "varo_hdr.h"

namespace {

struct Sse41 {
    typedef __m128i v;
    enum { n = 16 };
    static v load(const uint8_t *p) { return _mm_loadu_si128((const __m128i *)p); }
    static void store(uint8_t *p, v x) { _mm_storeu_si128((__m128i *)p, x); }
    static v table(const uint8_t *p) { return load(p); }
    static v splat(int c) { return _mm_set1_epi8((char)c); }
    static v and_(v a, v b) { return _mm_and_si128(a, b); }
    static v or_(v a, v b) { return _mm_or_si128(a, b); }
    static v andnot(v a, v b) { return _mm_andnot_si128(a, b); }
    static v subs(v a, v b) { return _mm_subs_epu8(a, b); }
    static v min(v a, v b) { return _mm_min_epu8(a, b); }
    static v max(v a, v b) { return _mm_max_epu8(a, b); }
    static v eq(v a, v b) { return _mm_cmpeq_epi8(a, b); }
    static v blend(v a, v b, v m) { return _mm_blendv_epi8(a, b, m); }
    static v shuffle(v t, v i) { return _mm_shuffle_epi8(t, i); }
    template <int k> static v shl16(v a) { return _mm_slli_epi16(a, k); }
    static v count(v acc, v m) { return _mm_add_epi64(acc, _mm_sad_epu8(m, _mm_setzero_si128())); }
    static uint32_t total(v acc) { return (uint32_t)(_mm_cvtsi128_si64(acc) + _mm_extract_epi64(acc, 1)); }
};

#ifdef __AVX2__
struct Avx2 {
    typedef __m256i v;
    enum { n = 32 };
    static v load(const uint8_t *p) { return _mm256_loadu_si256((const __m256i *)p); }
    static void store(uint8_t *p, v x) { _mm256_storeu_si256((__m256i *)p, x); }
    // vpshufb looks up within each 128-bit half: the table in both.
    static v table(const uint8_t *p) { return _mm256_broadcastsi128_si256(_mm_loadu_si128((const __m128i *)p)); }
    static v splat(int c) { return _mm256_set1_epi8((char)c); }
    static v and_(v a, v b) { return _mm256_and_si256(a, b); }
    static v or_(v a, v b) { return _mm256_or_si256(a, b); }
    static v andnot(v a, v b) { return _mm256_andnot_si256(a, b); }
    static v subs(v a, v b) { return _mm256_subs_epu8(a, b); }
    static v min(v a, v b) { return _mm256_min_epu8(a, b); }
    static v max(v a, v b) { return _mm256_max_epu8(a, b); }
    static v eq(v a, v b) { return _mm256_cmpeq_epi8(a, b); }
    static v blend(v a, v b, v m) { return _mm256_blendv_epi8(a, b, m); }
    static v shuffle(v t, v i) { return _mm256_shuffle_epi8(t, i); }
    template <int k> static v shl16(v a) { return _mm256_slli_epi16(a, k); }
    static v count(v acc, v m) { return _mm256_add_epi64(acc, _mm256_sad_epu8(m, _mm256_setzero_si256())); }
    static uint32_t total(v acc) {
        const __m128i s = _mm_add_epi64(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
        return (uint32_t)(_mm_cvtsi128_si64(s) + _mm_extract_epi64(s, 1));
    }
};
#endif

// A 256-entry byte table as 16 shuffle tables of 16 entries.
template <class O> struct Lut {
    typename O::v t[16];
    explicit Lut(const uint8_t *tab) {
        for (int k = 0; k < 16; ++k) t[k] = O::table(tab + 16 * k);
    }
};

// An index vector prepared for lookups: its low nibble, and bits 4..7 each
// moved to bit 7 (a 16-bit shift moves a byte's own bits up; what enters from
// the byte below lands under the shifted bit), where the byte blends test it.
template <class O> struct Index {
    typename O::v lo, b4, b5, b6, b7;
    explicit Index(typename O::v i)
        : lo(O::and_(i, O::splat(15))), b4(O::template shl16<3>(i)), b5(O::template shl16<2>(i)),
          b6(O::template shl16<1>(i)), b7(i) {}
};

// tab[i]: the 16 groups of 16 entries looked up by the low nibble, then the
// group picked bit by bit of the high nibble.
template <class O> typename O::v lookup(const Lut<O> &t, const Index<O> &i) {
    typename O::v r[8];
    for (int k = 0; k < 8; ++k) r[k] = O::blend(O::shuffle(t.t[2 * k], i.lo), O::shuffle(t.t[2 * k + 1], i.lo), i.b4);
    for (int k = 0; k < 4; ++k) r[k] = O::blend(r[2 * k], r[2 * k + 1], i.b5);
    return O::blend(O::blend(r[0], r[1], i.b6), O::blend(r[2], r[3], i.b6), i.b7);
}

// Unsigned byte comparisons as all-ones masks.
template <class O> typename O::v le(typename O::v a, typename O::v b) { return O::eq(O::min(a, b), a); }
template <class O> typename O::v ge(typename O::v a, typename O::v b) { return O::eq(O::max(a, b), a); }

// The cut's test: diff >= bound, without the equal ones when strict (all ones).
template <class O> typename O::v cut_pass(typename O::v d, typename O::v bound, typename O::v strict) {
    return O::andnot(O::and_(O::eq(d, bound), strict), ge<O>(d, bound));
}

template <class O> typename O::v absdiff(typename O::v a, typename O::v b) { return O::or_(O::subs(a, b), O::subs(b, a)); }

template <class O>
uint32_t motion_row_x86(uint8_t *const dst[3], const uint8_t *const src[3], uint8_t *const mask[3], unsigned width,
                        const MotionRules *rules) {
    typedef typename O::v v;
    const unsigned n = width - width % O::n;
    if (n == 0) return motion_row_tail_c(dst, src, mask, 0, width, rules);
    const Lut<O> le_predict(rules->le_predict), le_bound(rules->le_cut.bound);
    const Lut<O> he_predict(rules->he_predict), he_bound(rules->he_cut.bound);
    const v one = O::splat(1), ones = O::splat(255), zero = O::splat(0);
    const v le_strict = rules->le_cut.inclusive ? zero : ones, he_strict = rules->he_cut.inclusive ? zero : ones;
    const int le_rule = rules->le_rule, he_rule = rules->he_rule;
    v counted = zero;
    for (unsigned x = 0; x < n; x += O::n) {
        const v a = O::load(src[AE_IDX] + x), h = O::load(src[HE_IDX] + x);
        v l = O::load(src[LE_IDX] + x), ae = a, ma = one, ml = one, mh = one;
        if (le_rule != MOTION_LE_OFF) {
            const v p = lookup(le_predict, Index<O>(a));
            const v pass = cut_pass<O>(absdiff<O>(l, p), lookup(le_bound, Index<O>(l)), le_strict);
            if (le_rule == MOTION_LE_SHORT) {
                const v drop = O::and_(pass, le<O>(a, O::splat(219)));
                const v repl = O::and_(O::and_(pass, le<O>(l, O::splat(127))), ge<O>(a, O::splat(221)));
                ml = O::andnot(O::or_(drop, repl), ml);
                l = O::blend(l, p, repl);
            } else if (le_rule == MOTION_LE_MILD) {
                ml = O::andnot(pass, ml);
                ma = O::or_(ma, pass);
            } else {
                const v darker = O::andnot(ge<O>(a, l), ones); // a < l
                const v repl = O::andnot(darker, O::and_(pass, le<O>(l, O::splat(191))));
                ml = O::andnot(O::or_(darker, repl), ml);
                l = O::blend(l, p, repl);
            }
        }
        if (he_rule != MOTION_HE_OFF) {
            const Index<O> ih(h);
            const v p = lookup(he_predict, ih);
            const v pass = cut_pass<O>(absdiff<O>(a, p), lookup(he_bound, ih), he_strict);
            if (he_rule == MOTION_HE_SHORT) {
                mh = O::andnot(pass, mh);
                ma = O::or_(ma, pass);
            } else {
                const v first = O::and_(pass, le<O>(h, O::splat(220)));
                const v dark = O::and_(O::and_(pass, ge<O>(h, O::splat(221))), le<O>(a, O::splat(127)));
                const v repl = O::or_(first, dark);
                const v brighter = O::andnot(le<O>(l, h), ones); // l > h
                ma = O::andnot(repl, ma);
                ml = O::andnot(O::or_(repl, brighter), ml);
                ae = O::blend(a, p, repl);
                counted = O::count(counted, O::and_(dark, one));
                const v keep = O::and_(O::and_(ge<O>(h, O::splat(241)), ge<O>(l, O::splat(129))), O::eq(ml, zero));
                ml = O::or_(ml, O::and_(keep, one));
            }
        }
        O::store(dst[AE_IDX] + x, ae), O::store(dst[LE_IDX] + x, l), O::store(dst[HE_IDX] + x, h);
        O::store(mask[AE_IDX] + x, ma), O::store(mask[LE_IDX] + x, ml), O::store(mask[HE_IDX] + x, mh);
    }
    return O::total(counted) + motion_row_tail_c(dst, src, mask, n, width, rules);
}

} // namespace
