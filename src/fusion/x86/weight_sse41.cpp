// SSE4.1 weight-map kernels.
#include "fusion/fusion_dsp.h"
#include "fusion/x86/expand_x86.h"
#include "fusion/x86/reduce_x86.h"
#include "fusion/x86/weight_x86.h"

namespace {

template <class Lut>
void well_exposed_rows(uint8_t *dst, const uint8_t *luma, ptrdiff_t stride, const uint8_t *mask, const Lut &lut,
                       int width, int height) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    for (int r = 0; r < height; ++r) {
        int x = 0;
        for (; x + 16 <= n; x += 16) {
            __m128i lo, hi;
            frame_weights16(lut, luma + x, mask + x, &lo, &hi);
            _mm_storeu_si128((__m128i *)(dst + x), _mm_packus_epi16(lo, hi));
        }
        if (x < n)
            _mm_storel_epi64((__m128i *)(dst + x), _mm_packus_epi16(frame_weights8(lut, luma + x, mask + x), _mm_setzero_si128()));
        mask += n;
        luma += next;
        dst += next;
    }
}

decl_weight_well_exposed_fn(weight_well_exposed_sse41) {
    with_curve16(curve, [&](const auto &lut) { well_exposed_rows(dst, luma, stride, mask, lut, width, height); });
}

decl_weight_fused_fn(weight_fused_sse41) {
    with_curves16(curves, [&](const auto &c0, const auto &c1, const auto &c2) {
        if (mask) fused_rows<true>(dst, luma, stride, mask, width, height, [&](auto... a) { return fused_block16<true>(c0, c1, c2, a...); });
        else fused_rows<false>(dst, luma, stride, mask, width, height, [&](auto... a) { return fused_block16<false>(c0, c1, c2, a...); });
    });
}

decl_weight_normalize_fn(weight_normalize_sse41) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < n; x += 8) normalize8(w0 + x, w1 + x, w2 + x);
        w0 += next;
        w1 += next;
        w2 += next;
    }
}

template <int C> decl_reduce_h_fn(pyramid_reduce_h_sse41) {
    const int n = (int)ceil8((unsigned)(w >> 1));
    for (int r = 0; r < h; ++r, src += src_stride, dst += n) {
        pad_mirror(src, w);
        for (int k = 0; k < n; k += 8) _mm_storeu_si128((__m128i *)(dst + k), reduce_h8<C>(src + 2 * k));
    }
}

template <int C, int Shift> decl_reduce_v_fn(pyramid_reduce_v_sse41) {
    const int first = reduce_v_first(y0);
    dst += y0 * dst_stride;
    for (int k = y0; k < y1; ++k, dst += dst_stride) {
        const ReduceTaps tp = reduce_taps<C>(t + (ptrdiff_t)(2 * k - first) * out_w, out_w, k, out_h);
        const __m128i w01 = mul_pair(tp.w[0], tp.w[1]), w23 = mul_pair(tp.w[2], tp.w[3]);
        const __m128i w4r = mul_pair(tp.w[4], 1 << (Shift - 1));
        for (int x = 0; x < out_w; x += 8) _mm_storel_epi64((__m128i *)(dst + x), reduce_v8<Shift>(tp, x, w01, w23, w4r));
    }
}

decl_image_band_v_fn(image_band_v_sse41) {
    const int w8 = (w + 7) & ~7, hh = h >> 1, first = expand_v_first(y0);
    const int16_t *s = (const int16_t *)hs;
    for (int y = y0; y < y1; ++y) {
        const ExpandTaps t = expand_taps(y, hh);
        const int16_t *a = s + (t.ra - first) * w8, *b = s + (t.rb - first) * w8, *c = s + (t.rc - first) * w8;
        const __m128i wa = _mm_set1_epi16(t.wa), wb = _mm_set1_epi16(t.wb), wc = _mm_set1_epi16(t.wc);
        const uint8_t *gr = g + y * g_stride;
        int16_t *d = band + y * band_stride;
        for (int x = 0; x < w8; x += 8) {
            const __m128i e = round_shift6(expand_e8(a + x, b + x, c + x, wa, wb, wc));
            const __m128i gv = _mm_cvtepu8_epi16(_mm_loadl_epi64((const __m128i *)(gr + x)));
            _mm_storeu_si128((__m128i *)(d + x), _mm_sub_epi16(gv, e));
        }
    }
}

} // namespace

void fusion_dsp_init_sse41(FusionDsp *dsp) {
    dsp->image_band_v = image_band_v_sse41;
    dsp->weight_reduce_h = pyramid_reduce_h_sse41<54>;
    dsp->image_reduce_h = pyramid_reduce_h_sse41<6>;
    dsp->weight_reduce_v = pyramid_reduce_v_sse41<54, 12>;
    dsp->image_reduce_v = pyramid_reduce_v_sse41<6, 8>;
    dsp->weight_well_exposed = weight_well_exposed_sse41;
    dsp->weight_normalize = weight_normalize_sse41;
    dsp->weight_fused = weight_fused_sse41;
}
