// AVX2 weight-map kernels: the SSE4.1 steps at twice the width.
#include <immintrin.h>

#include "fusion/fusion_dsp.h"
#include "fusion/x86/expand_x86.h"
#include "fusion/x86/reduce_x86.h"
#include "fusion/x86/weight_x86.h"

namespace {

// A Curve16 lookup over 32 bytes: vpshufb looks up within each 128-bit
// half, so every table is broadcast to both halves.
template <int Parts, bool Fold> inline __m256i curve32(const Curve16<Parts, Fold> &c, __m256i v) {
    const __m256i i0 = Fold ? _mm256_min_epu8(v, _mm256_xor_si256(v, _mm256_set1_epi8(-1)))
                            : _mm256_sub_epi8(v, _mm256_set1_epi8((char)c.base));
    const __m256i bias = _mm256_set1_epi8(0x70);
    __m256i r = _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(_mm_load_si128((const __m128i *)c.tab[0])),
                                    Parts == 16 ? _mm256_adds_epu8(i0, bias) : i0);
    for (int k = 1; k < Parts; ++k) {
        const __m256i t = _mm256_broadcastsi128_si256(_mm_load_si128((const __m128i *)c.tab[k]));
        const __m256i i = _mm256_sub_epi8(i0, _mm256_set1_epi8((char)(16 * k)));
        if (Parts == 16) r = _mm256_or_si256(r, _mm256_shuffle_epi8(t, _mm256_adds_epu8(i, bias)));
        else r = _mm256_xor_si256(r, _mm256_shuffle_epi8(t, i));
    }
    if (Fold || Parts == 16) return r;
    const __m256i inside = _mm256_cmpeq_epi8(_mm256_min_epu8(i0, _mm256_set1_epi8((char)(16 * Parts - 1))), i0);
    return _mm256_blendv_epi8(_mm256_set1_epi8((char)c.fill), r, inside);
}

// gate8 over 16 pixels.
inline __m256i gate16(__m128i c16, const uint8_t *mask) {
    const __m256i m = _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)mask));
    return _mm256_min_epu16(_mm256_mullo_epi16(_mm256_cvtepu8_epi16(c16), m), _mm256_set1_epi16(255));
}

// frame_weights16 over 32 pixels.
template <bool Masked = true, class Lut>
inline void frame_weights32(const Lut &lut, const uint8_t *luma, const uint8_t *mask, __m256i *lo, __m256i *hi) {
    const __m256i c = curve32(lut, _mm256_loadu_si256((const __m256i *)luma));
    const __m128i c0 = _mm256_castsi256_si128(c), c1 = _mm256_extracti128_si256(c, 1);
    *lo = Masked ? gate16(c0, mask) : _mm256_cvtepu8_epi16(c0);
    *hi = Masked ? gate16(c1, mask + 16) : _mm256_cvtepu8_epi16(c1);
}

// 16 u16 lanes back to 16 bytes in order.
inline __m128i pack16(__m256i v) { return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)); }

// Two times 16 u16 lanes to 32 bytes in order (the pack interleaves the halves).
inline __m256i pack32(__m256i lo, __m256i hi) { return _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), 0xD8); }

template <class Lut>
void well_exposed_rows(uint8_t *dst, const uint8_t *luma, ptrdiff_t stride, const uint8_t *mask, const Lut &lut,
                       int width, int height) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    for (int r = 0; r < height; ++r) {
        int x = 0;
        for (; x + 32 <= n; x += 32) {
            __m256i lo, hi;
            frame_weights32(lut, luma + x, mask + x, &lo, &hi);
            _mm256_storeu_si256((__m256i *)(dst + x), pack32(lo, hi));
        }
        for (; x < n; x += 8)
            _mm_storel_epi64((__m128i *)(dst + x), _mm_packus_epi16(frame_weights8(lut, luma + x, mask + x), _mm_setzero_si128()));
        mask += n;
        luma += next;
        dst += next;
    }
}

decl_weight_well_exposed_fn(weight_well_exposed_avx2) {
    with_curve16(curve, [&](const auto &lut) { well_exposed_rows(dst, luma, stride, mask, lut, width, height); });
}

inline __m256i norm_scale16(__m256i w, __m256i q) {
    const __m256i lo = _mm256_mullo_epi16(w, q), hi = _mm256_mulhi_epu16(w, q);
    const __m256i t = _mm256_srli_epi16(_mm256_adds_epu16(lo, _mm256_set1_epi16(128)), 8);
    const __m256i big = _mm256_andnot_si256(_mm256_cmpeq_epi16(hi, _mm256_setzero_si256()), _mm256_set1_epi16(255));
    return _mm256_or_si256(t, big);
}

// recip4 over 8 sums.
inline __m256i recip8(__m256i s32) {
    const __m256 f = _mm256_cvtepi32_ps(_mm256_max_epi32(s32, _mm256_set1_epi32(1)));
    return _mm256_cvttps_epi32(_mm256_div_ps(_mm256_set1_ps(65536.0f), f));
}

// recip8_sums over 16 sums: the unpacks and the pack stay in the 128-bit
// halves, so the lanes come back in order.
inline __m256i recip16_sums(__m256i s) {
    const __m256i z = _mm256_setzero_si256();
    return _mm256_packus_epi32(recip8(_mm256_unpacklo_epi16(s, z)), recip8(_mm256_unpackhi_epi16(s, z)));
}

inline void normalize_w16(__m256i *a, __m256i *b, __m256i *c) {
    const __m256i q = recip16_sums(_mm256_add_epi16(_mm256_add_epi16(*a, *b), *c));
    *a = norm_scale16(*a, q);
    *b = norm_scale16(*b, q);
    *c = norm_scale16(*c, q);
}

inline void normalize16(uint8_t *w0, uint8_t *w1, uint8_t *w2) {
    __m256i a = _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)w0));
    __m256i b = _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)w1));
    __m256i c = _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)w2));
    normalize_w16(&a, &b, &c);
    _mm_storeu_si128((__m128i *)w0, pack16(a));
    _mm_storeu_si128((__m128i *)w1, pack16(b));
    _mm_storeu_si128((__m128i *)w2, pack16(c));
}

decl_weight_normalize_fn(weight_normalize_avx2) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    for (int r = 0; r < height; ++r) {
        int x = 0;
        for (; x + 16 <= n; x += 16) normalize16(w0 + x, w1 + x, w2 + x);
        if (x < n) normalize8(w0 + x, w1 + x, w2 + x);
        w0 += next;
        w1 += next;
        w2 += next;
    }
}

// 32 pixels while they last, the rest as the SSE4.1 kernel does them.
template <bool Masked, class L0, class L1, class L2>
int fused_block32(const L0 &c0, const L1 &c1, const L2 &c2, int x, int n, const uint8_t *const *l,
                  const uint8_t *const *m, uint8_t *const *d) {
    if (x + 32 > n) return fused_block16<Masked>(c0, c1, c2, x, n, l, m, d);
    const __m256i c[3] = {curve32(c0, _mm256_loadu_si256((const __m256i *)(l[0] + x))),
                          curve32(c1, _mm256_loadu_si256((const __m256i *)(l[1] + x))),
                          curve32(c2, _mm256_loadu_si256((const __m256i *)(l[2] + x)))};
    for (int h = 0; h < 32; h += 16) {
        __m256i w[3];
        for (int f = 0; f < 3; ++f) {
            const __m128i b = h ? _mm256_extracti128_si256(c[f], 1) : _mm256_castsi256_si128(c[f]);
            w[f] = Masked ? gate16(b, m[f] + x + h) : _mm256_cvtepu8_epi16(b);
        }
        normalize_w16(&w[0], &w[1], &w[2]);
        for (int f = 0; f < 3; ++f) _mm_storeu_si128((__m128i *)(d[f] + x + h), pack16(w[f]));
    }
    return 32;
}

decl_weight_fused_fn(weight_fused_avx2) {
    with_curves16(curves, [&](const auto &c0, const auto &c1, const auto &c2) {
        if (mask) fused_rows<true>(dst, luma, stride, mask, width, height, [&](auto... a) { return fused_block32<true>(c0, c1, c2, a...); });
        else fused_rows<false>(dst, luma, stride, mask, width, height, [&](auto... a) { return fused_block32<false>(c0, c1, c2, a...); });
    });
}

inline __m256i mul_pair256(int a, int b) { return _mm256_set1_epi32((int)((uint32_t)(uint16_t)a | (uint32_t)b << 16)); }

// reduce_h8 at 16 outputs per step: the 16-bit lanes never cross the
// 128-bit halves, so the outputs come out in order.
template <int C> decl_reduce_h_fn(pyramid_reduce_h_avx2) {
    const int n = (int)ceil8((unsigned)(w >> 1));
    const __m256i even = _mm256_set1_epi16(0xFF), centre = _mm256_set1_epi16(C);
    for (int r = 0; r < h; ++r, src += src_stride, dst += n) {
        pad_mirror(src, w);
        int k = 0;
        for (; k + 16 <= n; k += 16) {
            const uint8_t *p = src + 2 * k;
            const __m256i a = _mm256_loadu_si256((const __m256i *)(p - 2)), b = _mm256_loadu_si256((const __m256i *)p);
            const __m256i c = _mm256_loadu_si256((const __m256i *)(p + 2));
            const __m256i outer = _mm256_add_epi16(_mm256_and_si256(a, even), _mm256_and_si256(c, even));
            const __m256i inner = _mm256_add_epi16(_mm256_srli_epi16(a, 8), _mm256_srli_epi16(b, 8));
            _mm256_storeu_si256((__m256i *)(dst + k),
                                _mm256_add_epi16(_mm256_add_epi16(outer, _mm256_slli_epi16(inner, 2)),
                                                 _mm256_mullo_epi16(_mm256_and_si256(b, even), centre)));
        }
        if (k < n) _mm_storeu_si128((__m128i *)(dst + k), reduce_h8<C>(src + 2 * k));
    }
}

// reduce_v8 at 16 outputs per step (unpacks and packs stay in the 128-bit
// halves, so the outputs come back in order).
template <int C, int Shift> decl_reduce_v_fn(pyramid_reduce_v_avx2) {
    const __m256i one = _mm256_set1_epi16(1);
    const int first = reduce_v_first(y0);
    dst += y0 * dst_stride;
    for (int k = y0; k < y1; ++k, dst += dst_stride) {
        const ReduceTaps tp = reduce_taps<C>(t + (ptrdiff_t)(2 * k - first) * out_w, out_w, k, out_h);
        const __m256i w01 = mul_pair256(tp.w[0], tp.w[1]), w23 = mul_pair256(tp.w[2], tp.w[3]);
        const __m256i w4r = mul_pair256(tp.w[4], 1 << (Shift - 1));
        int x = 0;
        for (; x + 16 <= out_w; x += 16) {
            const __m256i a = _mm256_loadu_si256((const __m256i *)(tp.r[0] + x));
            const __m256i b = _mm256_loadu_si256((const __m256i *)(tp.r[1] + x));
            const __m256i c = _mm256_loadu_si256((const __m256i *)(tp.r[2] + x));
            const __m256i d = _mm256_loadu_si256((const __m256i *)(tp.r[3] + x));
            const __m256i e = _mm256_loadu_si256((const __m256i *)(tp.r[4] + x));
            __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), w01),
                                          _mm256_madd_epi16(_mm256_unpacklo_epi16(c, d), w23));
            __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), w01),
                                          _mm256_madd_epi16(_mm256_unpackhi_epi16(c, d), w23));
            lo = _mm256_srli_epi32(_mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(e, one), w4r)), Shift);
            hi = _mm256_srli_epi32(_mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(e, one), w4r)), Shift);
            _mm_storeu_si128((__m128i *)(dst + x), pack16(_mm256_packus_epi32(lo, hi)));
        }
        if (x < out_w)
            _mm_storel_epi64((__m128i *)(dst + x), reduce_v8<Shift>(tp, x, _mm256_castsi256_si128(w01), _mm256_castsi256_si128(w23),
                                                                     _mm256_castsi256_si128(w4r)));
    }
}

// expand_e8 and round_shift6 at 16 columns per step.
inline __m256i expand_e16(const int16_t *a, const int16_t *b, const int16_t *c, __m256i wa, __m256i wb, __m256i wc) {
    const __m256i pa = _mm256_mullo_epi16(_mm256_loadu_si256((const __m256i *)a), wa);
    const __m256i pb = _mm256_mullo_epi16(_mm256_loadu_si256((const __m256i *)b), wb);
    const __m256i pc = _mm256_mullo_epi16(_mm256_loadu_si256((const __m256i *)c), wc);
    const __m256i e = _mm256_add_epi16(_mm256_add_epi16(pa, pb), pc);
    return _mm256_add_epi16(_mm256_srai_epi16(e, 6), _mm256_and_si256(_mm256_srli_epi16(e, 5), _mm256_set1_epi16(1)));
}

decl_image_band_v_fn(image_band_v_avx2) {
    const int w8 = (w + 7) & ~7, hh = h >> 1, first = expand_v_first(y0);
    const int16_t *s = (const int16_t *)hs;
    for (int y = y0; y < y1; ++y) {
        const ExpandTaps t = expand_taps(y, hh);
        const int16_t *a = s + (t.ra - first) * w8, *b = s + (t.rb - first) * w8, *c = s + (t.rc - first) * w8;
        const __m256i wa = _mm256_set1_epi16(t.wa), wb = _mm256_set1_epi16(t.wb), wc = _mm256_set1_epi16(t.wc);
        const uint8_t *gr = g + y * g_stride;
        int16_t *d = band + y * band_stride;
        int x = 0;
        for (; x + 16 <= w8; x += 16) {
            const __m256i gv = _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)(gr + x)));
            _mm256_storeu_si256((__m256i *)(d + x), _mm256_sub_epi16(gv, expand_e16(a + x, b + x, c + x, wa, wb, wc)));
        }
        if (x < w8) {
            const __m128i e = round_shift6(expand_e8(a + x, b + x, c + x, _mm256_castsi256_si128(wa),
                                                     _mm256_castsi256_si128(wb), _mm256_castsi256_si128(wc)));
            const __m128i gv = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)(gr + x)));
            _mm_storeu_si128((__m128i *)(d + x), _mm_sub_epi16(gv, e));
        }
    }
}

decl_collapse_add_v_fn(collapse_add_v_avx2) {
    const int w8 = (w + 7) & ~7, hh = h >> 1, first = expand_v_first(y0);
    for (int y = y0; y < y1; ++y) {
        const ExpandTaps t = expand_taps(y, hh);
        const int16_t *a = hs + (t.ra - first) * w8, *b = hs + (t.rb - first) * w8, *c = hs + (t.rc - first) * w8;
        const __m256i wa = _mm256_set1_epi16(t.wa), wb = _mm256_set1_epi16(t.wb), wc = _mm256_set1_epi16(t.wc);
        int16_t *d = l + y * l_stride;
        int x = 0;
        for (; x + 16 <= w8; x += 16)
            _mm256_storeu_si256((__m256i *)(d + x), _mm256_add_epi16(_mm256_loadu_si256((const __m256i *)(d + x)),
                                                                     expand_e16(a + x, b + x, c + x, wa, wb, wc)));
        if (x < w8) {
            const __m128i e = round_shift6(expand_e8(a + x, b + x, c + x, _mm256_castsi256_si128(wa),
                                                     _mm256_castsi256_si128(wb), _mm256_castsi256_si128(wc)));
            _mm_storeu_si128((__m128i *)(d + x), _mm_add_epi16(_mm_loadu_si128((const __m128i *)(d + x)), e));
        }
    }
}

// Blend of 16 columns: the three products and the rounding constant summed
// by multiply-adds (|sum| < 2^31), the low 16 bits of the shift kept.
inline void blend16(int16_t *b0, const int16_t *b1, const int16_t *b2, const uint8_t *w0, const uint8_t *w1,
                    const uint8_t *w2) {
    const __m256i a = _mm256_loadu_si256((const __m256i *)b0), b = _mm256_loadu_si256((const __m256i *)b1);
    const __m256i c = _mm256_loadu_si256((const __m256i *)b2);
    const __m256i wa = _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)w0));
    const __m256i wb = _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)w1));
    const __m256i wc = _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)w2));
    const __m256i one = _mm256_set1_epi16(1), round = _mm256_set1_epi16(128), low = _mm256_set1_epi32(0xFFFF);
    __m256i lo = _mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), _mm256_unpacklo_epi16(wa, wb));
    __m256i hi = _mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), _mm256_unpackhi_epi16(wa, wb));
    lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(c, one), _mm256_unpacklo_epi16(wc, round)));
    hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(c, one), _mm256_unpackhi_epi16(wc, round)));
    lo = _mm256_and_si256(_mm256_srai_epi32(lo, 8), low);
    hi = _mm256_and_si256(_mm256_srai_epi32(hi, 8), low);
    _mm256_storeu_si256((__m256i *)b0, _mm256_packus_epi32(lo, hi));
}

decl_band_blend_fn(band_blend_avx2) {
    for (int y = 0; y < h; ++y) {
        int x = 0;
        for (; x + 16 <= w8; x += 16) blend16(b0 + x, b1 + x, b2 + x, w0 + x, w1 + x, w2 + x);
        // The last 8 columns of an odd count of 8-groups: the reference.
        if (x < w8) band_blend_c(b0 + x, b1 + x, b2 + x, bstride, w0 + x, w1 + x, w2 + x, wstride, w8 - x, 1);
        b0 += bstride;
        b1 += bstride;
        b2 += bstride;
        w0 += wstride;
        w1 += wstride;
        w2 += wstride;
    }
}

// Image expand, 16 source bytes (32 outputs) per step: the loads at k-1, k
// and k+1 read q[-1] .. q[ceil16(w)], as the reference does.
decl_image_expand_h_fn(image_expand_h_avx2) {
    const int n = (w + 15) & ~15;
    const ptrdiff_t pitch = (dst_w + 7) & ~7;
    for (int j = 0; j < h; ++j, src += src_stride, dst += pitch) {
        uint8_t *q = src;
        pad_repeat(q, w);
        for (int k = 0; k < n; k += 16) {
            __m256i o0, o1;
            expand_h16<16>(_mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)(q + k - 1))),
                           _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)(q + k))),
                           _mm256_cvtepu8_epi16(_mm_loadu_si128((const __m128i *)(q + k + 1))), &o0, &o1);
            _mm256_storeu_si256((__m256i *)(dst + 2 * k), o0);
            _mm256_storeu_si256((__m256i *)(dst + 2 * k + 16), o1);
        }
        if (dst_w & 1) dst[dst_w - 1] = (uint16_t)(7 * q[w - 1]);
    }
}

// Collapse expand, 16 source values per step while whole, an odd last group
// of 8 at half width: reads q[-1] .. q[ceil8(w)] and no further.
decl_collapse_expand_h_fn(collapse_expand_h_avx2) {
    const int n = (w + 7) & ~7;
    const ptrdiff_t pitch = (dst_w + 7) & ~7;
    for (int j = 0; j < h; ++j, src += src_stride, dst += pitch) {
        int16_t *q = src;
        pad_repeat(q, w);
        int k = 0;
        for (; k + 16 <= n; k += 16) {
            __m256i o0, o1;
            expand_h16<16>(_mm256_loadu_si256((const __m256i *)(q + k - 1)), _mm256_loadu_si256((const __m256i *)(q + k)),
                           _mm256_loadu_si256((const __m256i *)(q + k + 1)), &o0, &o1);
            _mm256_storeu_si256((__m256i *)(dst + 2 * k), o0);
            _mm256_storeu_si256((__m256i *)(dst + 2 * k + 16), o1);
        }
        if (k < n) {
            __m256i o0, o1;
            expand_h16<16>(_mm256_castsi128_si256(_mm_loadu_si128((const __m128i *)(q + k - 1))),
                           _mm256_castsi128_si256(_mm_loadu_si128((const __m128i *)(q + k))),
                           _mm256_castsi128_si256(_mm_loadu_si128((const __m128i *)(q + k + 1))), &o0, &o1);
            _mm256_storeu_si256((__m256i *)(dst + 2 * k), o0);
        }
        if (dst_w & 1) dst[dst_w - 1] = (int16_t)(uint16_t)(7 * q[w - 1]);
    }
}

} // namespace

void fusion_dsp_init_avx2(FusionDsp *dsp) {
    dsp->collapse_expand_h = collapse_expand_h_avx2;
    dsp->image_expand_h = image_expand_h_avx2;
    dsp->band_blend = band_blend_avx2;
    dsp->image_band_v = image_band_v_avx2;
    dsp->collapse_add_v = collapse_add_v_avx2;
    dsp->weight_reduce_h = pyramid_reduce_h_avx2<54>;
    dsp->image_reduce_h = pyramid_reduce_h_avx2<6>;
    dsp->weight_reduce_v = pyramid_reduce_v_avx2<54, 12>;
    dsp->image_reduce_v = pyramid_reduce_v_avx2<6, 8>;
    dsp->weight_well_exposed = weight_well_exposed_avx2;
    dsp->weight_normalize = weight_normalize_avx2;
    dsp->weight_fused = weight_fused_avx2;
}
