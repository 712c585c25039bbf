// Reference chroma kernels: the executable definition of every extent and
// rounding step (see the contracts in chroma_dsp.h).
#include "fusion/chroma_dsp.h"

#include "common/arith.h"

namespace {

decl_chroma_copy_flip_fn(chroma_copy_flip_c) {
    for (int r = 0; r < rows; r += 2) {
        for (int k = 0; k < 2; ++k) {
            const uint8_t *s = src + (r + k) * src_stride;
            int8_t *d = dst + (r + k) * dst_stride;
            for (int i = 0; i < bytes; ++i) d[i] = (int8_t)(uint8_t)(s[i] ^ 0x80);
        }
    }
}

decl_chroma_reduce_h_fn(chroma_reduce_h_c) {
    const int n = (int)ceil8(2u * (unsigned)(pairs >> 1));
    for (int r = 0; r < rows; ++r, src += src_stride, dst += n) {
        int8_t *p = src;
        pad_pairs_mirror(p, pairs);
        for (int i = 0; i < n; ++i) {
            const int b = 4 * (i >> 1) + (i & 1);
            dst[i] = (int16_t)(p[b - 4] + 4 * p[b - 2] + 6 * p[b] + 4 * p[b + 2] + p[b + 4]);
        }
    }
}

decl_chroma_reduce_v_fn(chroma_reduce_v_c) {
    const int n = (int)ceil8((unsigned)values), first = reduce_v_first(y0);
    for (int j = y0; j < y1; ++j) {
        const int16_t *c = src + (2 * j - first) * n;
        int8_t *d = dst + j * dst_stride;
        for (int i = 0; i < n; ++i) {
            int s;
            if (j == 0)
                s = 6 * c[i] + 8 * c[i + n] + 2 * c[i + 2 * n];
            else if (j == rows - 1)
                s = c[i - 2 * n] + 4 * c[i - n] + 7 * c[i] + 4 * c[i + n];
            else
                s = c[i - 2 * n] + 4 * c[i - n] + 6 * c[i] + 4 * c[i + n] + c[i + 2 * n];
            d[i] = (int8_t)((s + 128) >> 8);
        }
    }
}

// One row of the pair-interleaved expand: repeat padding written in place,
// then out pair 2k = p[k-1] + 6 p[k] + p[k+1] and 2k+1 = 4 p[k] + 4 p[k+1] per
// component for `kmax` source pairs, and the weight-7 last pair of an odd
// count.  Rows are `pitch` values apart in the scratch; a row's spill past its
// end is overwritten by the next row.
template <class T>
void expand_pair_rows(int16_t *dst, T *src, ptrdiff_t src_stride, int src_pairs, int rows, int dst_pairs,
                      int kmax) {
    const int pitch = (int)ceil8(2u * (unsigned)dst_pairs);
    const int e = 2 * src_pairs;
    for (int j = 0; j < rows; ++j, src += src_stride, dst += pitch) {
        T *q = src;
        pad_pairs_repeat(q, src_pairs);
        for (int k = 0; k < kmax; ++k)
            for (int c = 0; c < 2; ++c) {
                const int a = q[2 * k - 2 + c], b = q[2 * k + c], d = q[2 * k + 2 + c];
                dst[4 * k + c] = (int16_t)(a + 6 * b + d);
                dst[4 * k + 2 + c] = (int16_t)(4 * b + 4 * d);
            }
        odd_last_pair(dst, dst_pairs, q, e);
    }
}

// 8-bit levels: 16 source values (8 pairs) per step.
decl_chroma_expand_h_fn(chroma_expand_h_c) {
    expand_pair_rows(dst, src, src_stride, src_pairs, rows, dst_pairs, (int)ceil8((unsigned)src_pairs));
}

decl_chroma_expand_band_fn(chroma_expand_band_c) {
    const int n = (int)ceil8((unsigned)values);
    const int hrows = rows >> 1;
    const int first = expand_v_first(y0);
    for (int y = y0; y < y1; ++y) {
        int16_t *b = band + y * band_stride;
        if (zero_edges && chroma_zero_row(y, rows)) {
            for (int i = 0; i < n; ++i) b[i] = 0;
            continue;
        }
        const ExpandTaps t = expand_taps(y, hrows);
        const int16_t *ha = h + (t.ra - first) * n, *hb = h + (t.rb - first) * n, *hc = h + (t.rc - first) * n;
        const int8_t *gr = g + y * g_stride;
        for (int i = 0; i < n; ++i) {
            const int E = t.wa * ha[i] + t.wb * hb[i] + t.wc * hc[i];
            b[i] = (int16_t)(gr[i] - ((E + 32) >> 6));
        }
    }
}

decl_chroma_residual_fn(chroma_residual_c) {
    for (int y = 0; y < rows; ++y)
        for (int i = 0; i < values; ++i) dst[y * dst_stride + i] = src[y * src_stride + i];
}

decl_chroma_blend_fn(chroma_blend_c) {
    const int n = (int)ceil8((unsigned)pairs);
    for (int y = 0; y < rows; ++y) {
        int16_t *p0 = b0 + y * stride;
        const int16_t *p1 = b1 + y * stride, *p2 = b2 + y * stride;
        const uint8_t *v0 = w0 + y * w_stride, *v1 = w1 + y * w_stride, *v2 = w2 + y * w_stride;
        for (int x = 0; x < 2 * n; ++x) {
            const int32_t a = v0[x >> 1] * p0[x] + v1[x >> 1] * p1[x] + v2[x >> 1] * p2[x];
            p0[x] = (int16_t)((a + 128) >> 8);
        }
    }
}

// 16-bit levels: 8 source values (4 pairs) per step.
decl_chroma_collapse_h_fn(chroma_collapse_h_c) {
    expand_pair_rows(dst, src, src_stride, src_pairs, rows, dst_pairs,
                     (int)ceil8(2u * (unsigned)src_pairs) / 2);
}

decl_chroma_collapse_v_fn(chroma_collapse_v_c) {
    const int n = (int)ceil8((unsigned)values);
    const int hrows = rows >> 1;
    const int first = expand_v_first(y0);
    for (int y = y0; y < y1; ++y) {
        const ExpandTaps t = expand_taps(y, hrows);
        const int16_t *ha = h + (t.ra - first) * n, *hb = h + (t.rb - first) * n, *hc = h + (t.rc - first) * n;
        int16_t *d = dst + y * stride;
        for (int i = 0; i < n; ++i) {
            const int16_t E = (int16_t)(t.wa * ha[i] + t.wb * hb[i] + t.wc * hc[i]);
            d[i] = (int16_t)(d[i] + ((E + 32) >> 6));
        }
    }
}

} // namespace

void chroma_dsp_init_c(ChromaDsp *dsp) {
    dsp->copy_flip = chroma_copy_flip_c;
    dsp->reduce_h = chroma_reduce_h_c;
    dsp->reduce_v = chroma_reduce_v_c;
    dsp->expand_h = chroma_expand_h_c;
    dsp->expand_band = chroma_expand_band_c;
    dsp->residual = chroma_residual_c;
    dsp->blend = chroma_blend_c;
    dsp->collapse_h = chroma_collapse_h_c;
    dsp->collapse_v = chroma_collapse_v_c;
}
