// Row rules shared by the pyramid kernels.  The border pads are used by every
// instruction set: written in place just outside a row, in this order, so
// that every variant leaves the same bytes (the order matters for rows
// narrower than three pixels, whose pads overlap their sources).
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "common/arith.h"
#include "fusion/fusion_dsp.h"

// Reduce: mirror about the end pixels without repeating them.
template <class T> static inline void pad_mirror(T *p, int w) {
    p[-2] = p[2];
    p[-1] = p[1];
    p[w] = p[w - 2];
}

// Expand: repeat the end pixels.
template <class T> static inline void pad_repeat(T *p, int w) {
    p[-1] = p[0];
    p[w] = p[w - 1];
}

// Expand row rules, shared by the band and the collapse: output rows 2j and
// 2j+1 come from scratch rows j-1, j, j+1 (expand_taps); the top repeats row
// 0, the bottom repeats the last row, and an odd height gets one more row of
// weight 7.  Rows y0 .. y1-1; hs holds the scratch rows from
// expand_v_first(y0) on.
template <class T, class Emit>
static inline void expand_rows(const T *hs, int w8, int h, int y0, int y1, Emit emit) {
    const int first = expand_v_first(y0);
    for (int y = y0; y < y1; ++y) {
        const ExpandTaps t = expand_taps(y, h >> 1);
        const T *a = hs + (ptrdiff_t)(t.ra - first) * w8, *b = hs + (ptrdiff_t)(t.rb - first) * w8;
        const T *c = hs + (ptrdiff_t)(t.rc - first) * w8;
        for (int x = 0; x < w8; ++x) emit(y, x, t.wa * a[x] + t.wb * b[x] + t.wc * c[x]);
    }
}

// Horizontal decimating pass of both pyramids (reduce_h_fn), centre tap C:
// 54 for the weights, 6 for the image.
template <int C> decl_reduce_h_fn(pyramid_reduce_h_c) {
    const int n = (int)ceil8((unsigned)(w >> 1));
    for (int r = 0; r < h; ++r, src += src_stride, dst += n) {
        uint8_t *p = src;
        pad_mirror(p, w);
        for (int k = 0; k < n; ++k)
            dst[k] = (uint16_t)(p[2 * k - 2] + 4 * p[2 * k - 1] + C * p[2 * k] + 4 * p[2 * k + 1] +
                                p[2 * k + 2]);
    }
}

// Vertical decimating pass of both pyramids (reduce_v_fn): centre tap C,
// rounded by Shift and saturated, (54, 12) for the weights; (6, 8) for the
// image, whose sums stay within 16 bits so that nothing saturates.
template <unsigned C, int Shift> decl_reduce_v_fn(pyramid_reduce_v_c) {
    const auto out = [](unsigned sum) { return min_u8((sum + (1u << (Shift - 1))) >> Shift); };
    const ptrdiff_t s = out_w;
    const int first = reduce_v_first(y0);
    for (int k = y0; k < y1; ++k) {
        const uint16_t *c = t + (2 * k - first) * s;
        uint8_t *d = dst + k * dst_stride;
        if (k == 0)
            for (int x = 0; x < out_w; ++x) d[x] = out(C * c[x] + 8u * c[s + x] + 2u * c[2 * s + x]);
        else if (k < out_h - 1)
            for (int x = 0; x < out_w; ++x)
                d[x] = out(c[x - 2 * s] + 4u * c[x - s] + C * c[x] + 4u * c[x + s] + c[x + 2 * s]);
        else // the row below the bottom centre is the centre itself, not a mirror
            for (int x = 0; x < out_w; ++x) d[x] = out(c[x - 2 * s] + 4u * c[x - s] + (C + 1) * c[x] + 4u * c[x + s]);
    }
}

// Horizontal expanding pass of the image pyramid (8-bit source, columns in
// groups of 16) and of the collapse (16-bit, groups of 8); the sums are kept
// to their low 16 bits.
template <class D, class S, unsigned Group>
void pyramid_expand_h_c(D *dst, S *src, ptrdiff_t src_stride, int w, int h, int dst_w) {
    const int n = (int)(((unsigned)w + Group - 1) & ~(Group - 1));
    const ptrdiff_t pitch = ceil8((unsigned)dst_w);
    for (int j = 0; j < h; ++j, src += src_stride, dst += pitch) {
        S *q = src;
        pad_repeat(q, w);
        for (int k = 0; k < n; ++k) {
            dst[2 * k] = (D)(uint16_t)(q[k - 1] + 6 * q[k] + q[k + 1]);
            dst[2 * k + 1] = (D)(uint16_t)(4 * q[k] + 4 * q[k + 1]);
        }
        // An odd last column has no right neighbour to share: weight 7.
        if (dst_w & 1) dst[dst_w - 1] = (D)(uint16_t)(7 * q[w - 1]);
    }
}
