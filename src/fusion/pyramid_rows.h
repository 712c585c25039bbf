// Row rules shared by the pyramid kernels.  The border pads are used by every
// instruction set: written in place just outside a row, in this order, so
// that every variant leaves the same bytes (the order matters for rows
// narrower than three pixels, whose pads overlap their sources).
#pragma once
#include <stddef.h>
#include <stdint.h>

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
// 2j+1 come from scratch rows j-1, j, j+1; the top repeats row 0, the bottom
// repeats the last row, and an odd height gets one more row of weight 7.
template <class T, class Emit>
static inline void expand_rows(const T *hs, int w8, int h, Emit emit) {
    const int hh = h >> 1;
    const ptrdiff_t s = w8;
    const T *last = hs + (hh - 1) * s;
    for (int x = 0; x < w8; ++x) {
        emit(0, x, 7 * hs[x] + hs[s + x]);
        emit(1, x, 4 * hs[x] + 4 * hs[s + x]);
    }
    for (int j = 1; j < hh - 1; ++j) {
        const T *c = hs + j * s;
        for (int x = 0; x < w8; ++x) {
            emit(2 * j, x, c[x - s] + 6 * c[x] + c[x + s]);
            emit(2 * j + 1, x, 4 * c[x] + 4 * c[x + s]);
        }
    }
    const int j = hh - 1;
    for (int x = 0; x < w8; ++x) {
        emit(2 * j, x, last[x - s] + 7 * last[x]);
        emit(2 * j + 1, x, 8 * last[x]);
    }
    if (h & 1)
        for (int x = 0; x < w8; ++x) emit(2 * j + 2, x, 7 * last[x]);
}
