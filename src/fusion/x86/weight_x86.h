// Steps shared by the SSE4.1 and AVX2 weight kernels.  Each including file
// gets its own copy (internal linkage), compiled with that file's flags.
#pragma once
#include <smmintrin.h>
#include <stdint.h>

#include "fusion/fusion_dsp.h"
#include "fusion/weight_curve.h"

namespace {

// min(255, (w * q + 128) >> 8) of 16-bit w (<= 255) and q, from the two
// halves of the 32-bit product: a non-zero high half means at least 65536,
// i.e. 255 after the shift; otherwise the saturating add stands in for the
// one case (low half >= 65408) where the sum passes 16 bits, also 255.
inline __m128i norm_scale8(__m128i w, __m128i q) {
    const __m128i lo = _mm_mullo_epi16(w, q), hi = _mm_mulhi_epu16(w, q);
    const __m128i t = _mm_srli_epi16(_mm_adds_epu16(lo, _mm_set1_epi16(128)), 8);
    const __m128i big = _mm_andnot_si128(_mm_cmpeq_epi16(hi, _mm_setzero_si128()), _mm_set1_epi16(255));
    return _mm_or_si128(t, big);
}

// The reciprocal table entries of 4 sums: 65536 / max(s, 1) in float is
// exact once truncated for every s up to 765 (each quotient is either whole
// or at least 1/765 from the next whole number, several float steps), and
// the later unsigned 16-bit pack turns the 65536 of s <= 1 into the table's
// 65535.  The quotients are in 85..65536, so the conversion never overflows.
inline __m128i recip4(__m128i s32) {
    const __m128 f = _mm_cvtepi32_ps(_mm_max_epi32(s32, _mm_set1_epi32(1)));
    return _mm_cvttps_epi32(_mm_div_ps(_mm_set1_ps(65536.0f), f));
}

// The reciprocals of eight weight sums (16-bit lanes, at most 765), in order:
// the unpacks and the pack keep lanes 0..3 and 4..7 apart.
inline __m128i recip8_sums(__m128i s) {
    const __m128i z = _mm_setzero_si128();
    return _mm_packus_epi32(recip4(_mm_unpacklo_epi16(s, z)), recip4(_mm_unpackhi_epi16(s, z)));
}

// The three weights of eight pixels (16-bit lanes) normalised together.
inline void normalize_w8(__m128i *a, __m128i *b, __m128i *c) {
    const __m128i q = recip8_sums(_mm_add_epi16(_mm_add_epi16(*a, *b), *c));
    *a = norm_scale8(*a, q);
    *b = norm_scale8(*b, q);
    *c = norm_scale8(*c, q);
}

// Eight pixels of the three maps, in place.
inline void normalize8(uint8_t *w0, uint8_t *w1, uint8_t *w2) {
    __m128i a = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)w0));
    __m128i b = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)w1));
    __m128i c = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)w2));
    normalize_w8(&a, &b, &c);
    const __m128i z = _mm_setzero_si128();
    _mm_storel_epi64((__m128i *)w0, _mm_packus_epi16(a, z));
    _mm_storel_epi64((__m128i *)w1, _mm_packus_epi16(b, z));
    _mm_storel_epi64((__m128i *)w2, _mm_packus_epi16(c, z));
}

// curve[v] of 16 bytes by byte shuffles over the 16-entry parts first ..
// first + Parts - 1 only, i = v - 16 first (Fold: a symmetric curve looked
// up at i = min(v, 255 - v), parts 0..7).  Lanes past the parts take the
// fill.
//
// Up to 9 parts: shuffle k takes index i - 16k, which keeps the low nibble
// and has bit 7 clear (a lane, not zero) exactly for the parts k .. k + 7
// above it (k <= 8, so none wraps round to a lower part).  A lane of part p
// thus XORs the tables k = max(0, p - 7) .. p together, and table k holds
// curve part k XOR the tables k - 7 .. k - 1 below it: one subtraction per
// part instead of two.  All 16 parts: after k steps of -16 the lanes of part
// k are 0..15, and the saturating +0x70 sets bit 7 of every other lane,
// wrapped ones included.
template <int Parts, bool Fold> struct Curve16 {
    static_assert(Parts <= 9 || Parts == 16, "windowed lookups reach 9 parts");
    alignas(16) uint8_t tab[Parts][16];
    uint8_t base, fill;
    Curve16(const uint8_t *curve, CurveParts cp) {
        if (cp.first > 16 - Parts) cp.first = 16 - Parts;
        base = (uint8_t)(16 * cp.first);
        fill = cp.fill;
        for (int k = 0; k < Parts; ++k)
            for (int j = 0; j < 16; ++j) {
                uint8_t t = curve[16 * (cp.first + k) + j];
                for (int b = k - 7; Parts <= 9 && b < k; ++b) t ^= b >= 0 ? tab[b][j] : 0;
                tab[k][j] = t;
            }
    }
    __m128i operator()(__m128i v) const {
        const __m128i i0 = Fold ? _mm_min_epu8(v, _mm_xor_si128(v, _mm_set1_epi8(-1))) : _mm_sub_epi8(v, _mm_set1_epi8((char)base));
        __m128i r = _mm_shuffle_epi8(_mm_load_si128((const __m128i *)tab[0]), Parts == 16 ? _mm_adds_epu8(i0, _mm_set1_epi8(0x70)) : i0);
        for (int k = 1; k < Parts; ++k) {
            const __m128i t = _mm_load_si128((const __m128i *)tab[k]);
            if (Parts == 16) r = _mm_or_si128(r, _mm_shuffle_epi8(t, _mm_adds_epu8(_mm_sub_epi8(i0, _mm_set1_epi8((char)(16 * k))), _mm_set1_epi8(0x70))));
            else r = _mm_xor_si128(r, _mm_shuffle_epi8(t, _mm_sub_epi8(i0, _mm_set1_epi8((char)(16 * k)))));
        }
        if (Fold || Parts == 16) return r;
        const __m128i inside = _mm_cmpeq_epi8(_mm_min_epu8(i0, _mm_set1_epi8((char)(16 * Parts - 1))), i0);
        return _mm_blendv_epi8(_mm_set1_epi8((char)fill), r, inside);
    }
};

// f(lookup) with the fewest parts that are exact for this curve.
template <class F> void with_curve16(const uint8_t *curve, F f) {
    const CurveParts cp = curve_parts<4>(curve);
    if (cp.fold) f(Curve16<8, true>(curve, cp));
    else if (cp.count <= 9) f(Curve16<9, false>(curve, cp));
    else f(Curve16<16, false>(curve, cp));
}

// f(lookup0, lookup1, lookup2): the merge's curves (a falling and a rising
// one of 9 parts, the bell) get their short lookups, any other set all 16
// parts each (one instantiation per set, not per combination).
template <class F> void with_curves16(const uint8_t *curves, F f) {
    CurveParts cp[3];
    for (int k = 0; k < 3; ++k) cp[k] = curve_parts<4>(curves + 256 * k);
    if (!cp[0].fold && cp[0].count <= 9 && !cp[1].fold && cp[1].count <= 9 && cp[2].fold)
        f(Curve16<9, false>(curves, cp[0]), Curve16<9, false>(curves + 256, cp[1]), Curve16<8, true>(curves + 512, cp[2]));
    else
        f(Curve16<16, false>(curves, cp[0]), Curve16<16, false>(curves + 256, cp[1]), Curve16<16, false>(curves + 512, cp[2]));
}

// Eight weights min(255, curve * mask) from their curve values, as 16-bit
// lanes.
inline __m128i gate8(__m128i c8, const uint8_t *mask) {
    const __m128i p = _mm_mullo_epi16(_mm_cvtepu8_epi16(c8), _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)mask)));
    return _mm_min_epu16(p, _mm_set1_epi16(255));
}

// One frame's weights of 16 pixels (lo: the first 8) and of 8 pixels;
// without a mask (every byte 1) the curve values themselves.
template <bool Masked = true, class Lut>
inline void frame_weights16(const Lut &lut, const uint8_t *luma, const uint8_t *mask, __m128i *lo, __m128i *hi) {
    const __m128i c = lut(_mm_loadu_si128((const __m128i *)luma)), c1 = _mm_srli_si128(c, 8);
    *lo = Masked ? gate8(c, mask) : _mm_cvtepu8_epi16(c);
    *hi = Masked ? gate8(c1, mask + 8) : _mm_cvtepu8_epi16(c1);
}
template <bool Masked = true, class Lut> inline __m128i frame_weights8(const Lut &lut, const uint8_t *luma, const uint8_t *mask) {
    const __m128i c = lut(_mm_loadl_epi64((const __m128i *)luma));
    return Masked ? gate8(c, mask) : _mm_cvtepu8_epi16(c);
}

// Row walk of the one-pass weight kernel: step(x, n, luma, mask, dst)
// weighs and normalises the three frames' pixels from x on and returns how
// many it did (a multiple of 8, none past n); the masks advance densely, luma
// and dst by the pitch.
template <bool Masked, class Step>
void fused_rows(uint8_t *const *dst, const uint8_t *const *luma, ptrdiff_t stride, const uint8_t *const *mask,
                int width, int height, Step step) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    uint8_t *d[3] = {dst[0], dst[1], dst[2]};
    const uint8_t *l[3] = {luma[0], luma[1], luma[2]};
    // Unmasked, the mask pointers are never read: the luma rows stand in.
    const uint8_t *m[3] = {Masked ? mask[0] : luma[0], Masked ? mask[1] : luma[1], Masked ? mask[2] : luma[2]};
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < n;) x += step(x, n, l, m, d);
        for (int f = 0; f < 3; ++f) {
            l[f] += next;
            d[f] += next;
            if (Masked) m[f] += n;
        }
    }
}

// One step of the row walk: 16 pixels while they last, then 8.  The curve
// values stay bytes until each half is weighed and normalised, which keeps
// few vectors live across the three lookups.
template <bool Masked, class L0, class L1, class L2>
int fused_block16(const L0 &c0, const L1 &c1, const L2 &c2, int x, int n, const uint8_t *const *l,
                  const uint8_t *const *m, uint8_t *const *d) {
    const int step = x + 16 <= n ? 16 : 8;
    __m128i c[3];
    if (step == 16) {
        c[0] = c0(_mm_loadu_si128((const __m128i *)(l[0] + x)));
        c[1] = c1(_mm_loadu_si128((const __m128i *)(l[1] + x)));
        c[2] = c2(_mm_loadu_si128((const __m128i *)(l[2] + x)));
    } else {
        c[0] = c0(_mm_loadl_epi64((const __m128i *)(l[0] + x)));
        c[1] = c1(_mm_loadl_epi64((const __m128i *)(l[1] + x)));
        c[2] = c2(_mm_loadl_epi64((const __m128i *)(l[2] + x)));
    }
    for (int h = 0; h < step; h += 8) {
        __m128i w[3];
        for (int f = 0; f < 3; ++f) {
            const __m128i b = h ? _mm_srli_si128(c[f], 8) : c[f];
            w[f] = Masked ? gate8(b, m[f] + x + h) : _mm_cvtepu8_epi16(b);
        }
        normalize_w8(&w[0], &w[1], &w[2]);
        for (int f = 0; f < 3; ++f) _mm_storel_epi64((__m128i *)(d[f] + x + h), _mm_packus_epi16(w[f], w[f]));
    }
    return step;
}

} // namespace
