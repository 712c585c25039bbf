// Kernels of the chroma pyramid and its reconstruction.  Chroma rows hold
// interleaved pairs (first component, second component, ...); every filter
// works per component, so horizontal neighbours are two values apart.
//
// Counting: "pairs" is a row's pair count, "values" twice that.  ceil8 and
// ceil16 round up to a multiple of 8 or 16.  All pitches are in elements of
// the pointed-to type.  Every kernel writes exactly the extents stated here,
// slack included, and walks rows in increasing order: later passes read what
// an earlier one left past a row's end.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "fusion/fusion_dsp.h"

// In-place row pads of a pair-interleaved row of `pairs` pairs, each
// component padded with itself, written in this order by every variant:
// the reduce mirrors about the end pairs, the expand repeats them.
template <class T> inline void pad_pairs_mirror(T *p, int pairs) {
    const int e = 2 * pairs;
    p[-4] = p[4];
    p[-3] = p[5];
    p[-2] = p[2];
    p[-1] = p[3];
    p[e] = p[e - 4];
    p[e + 1] = p[e - 3];
}
template <class T> inline void pad_pairs_repeat(T *p, int pairs) {
    const int e = 2 * pairs;
    p[-2] = p[0];
    p[-1] = p[1];
    p[e] = p[e - 2];
    p[e + 1] = p[e - 1];
}

// The expand's last pair of an odd output pair count has no right neighbour
// to share: 7 times the last source pair (e = 2 * src_pairs).
template <class T> inline void odd_last_pair(int16_t *dst, int dst_pairs, const T *q, int e) {
    if (dst_pairs & 1) {
        dst[2 * dst_pairs - 2] = (int16_t)(7 * q[e - 2]);
        dst[2 * dst_pairs - 1] = (int16_t)(7 * q[e - 1]);
    }
}

// Rows of level 0 that the band writes as 0: the first two and the last two
// (three for an odd row count).
static inline bool chroma_zero_row(int y, int rows) { return y < 2 || y >= rows - ((rows & 1) ? 3 : 2); }

// Signed working copy of the level-0 plane.  Rows are copied in pairs:
// ceil2(rows) rows (one past the plane when rows is odd), `bytes` bytes each,
// every byte plus 128 modulo 256.  Reads the same extent of src and nothing
// more: the source is the host's plane, which may end with its last row.
#define decl_chroma_copy_flip_fn(name) void (name)(int8_t *dst, ptrdiff_t dst_stride, \
    const uint8_t *src, ptrdiff_t src_stride, int bytes, int rows)
typedef decl_chroma_copy_flip_fn(*chroma_copy_flip_fn);

// Horizontal half of the reduce, one source row at a time: first the row's
// mirror pads are written in place (pair[-2] = pair[2], pair[-1] = pair[1],
// pair[pairs] = pair[pairs - 2], i.e. bytes -4..-1 and 2*pairs, 2*pairs + 1),
// then ceil8(2 * (pairs >> 1)) values t = p[-2] + 4p[-1] + 6p[0] + 4p[1] + p[2]
// (pair offsets, centred on even pairs) are written to dst, rows back to back
// at that pitch.  t is in -2048..2032.  Reads bytes -4 .. 2*ceil8(...) + 1
// (vector variants up to + 3: whole pairs of the last step).
#define decl_chroma_reduce_h_fn(name) void (name)(int16_t *dst, int8_t *src, ptrdiff_t src_stride, \
    int pairs, int rows)
typedef decl_chroma_reduce_h_fn(*chroma_reduce_h_fn);

// Vertical half of the reduce, output rows y0 .. y1-1 of a level of `rows`
// rows of ceil8(values) bytes: row j centred on source row 2j (top mirrored:
// 6 t0 + 8 t1 + 2 t2; last row j = rows - 1 >= 1: t[2j-2] + 4 t[2j-1] +
// 7 t[2j] + 4 t[2j+1]), each sum s in -32768..32512 stored as (s + 128) >> 8.
// dst points at output row 0, src at source row reduce_v_first(y0), rows
// ceil8(values) apart; reads source rows up to reduce_v_end(y1, rows) - 1
// (0 .. 2 when rows is 1).  Any split of 0 .. rows into ranges writes the
// bytes of one whole call.
#define decl_chroma_reduce_v_fn(name) void (name)(int8_t *dst, ptrdiff_t dst_stride, \
    const int16_t *src, int values, int rows, int y0, int y1)
typedef decl_chroma_reduce_v_fn(*chroma_reduce_v_fn);

// Horizontal half of the expand, one coarse row at a time: repeat pads written
// in place (pair[-1] = pair[0], pair[src_pairs] = pair[src_pairs - 1]), then
// for every pair k < ceil8(src_pairs) output pairs 2k = p[k-1] + 6p[k] + p[k+1]
// and 2k+1 = 4p[k] + 4p[k+1], i.e. 2*ceil16(2*src_pairs) values, written at
// pitch ceil8(2*dst_pairs): a row's tail spills into the next row's place and
// the last row's up to 31 values past the rows.  Odd dst_pairs: afterwards
// the row's pair dst_pairs - 1 becomes 7 p[src_pairs - 1].  Values -1024..1016.
#define decl_chroma_expand_h_fn(name) void (name)(int16_t *dst, int8_t *src, ptrdiff_t src_stride, \
    int src_pairs, int rows, int dst_pairs)
typedef decl_chroma_expand_h_fn(*chroma_expand_h_fn);

// Vertical half of the expand and the band, rows y0 .. y1-1 of a level of
// `rows` rows: for each such row and ceil8(values) values, E from the rows
// of h (pitch ceil8(values), rows >> 1 rows) with repeated edges,
// E[2j] = h[j-1] + 6h[j] + h[j+1], E[2j+1] = 4h[j] + 4h[j+1], and for odd
// rows a last row 7 h[last]; band = g - ((E + 32) >> 6), in -255..255.
// zero_edges: rows 0, 1 and the last two (three for odd rows) are written as
// 0.  band and g point at row 0, h at its row expand_v_first(y0); rows up to
// expand_v_end(y1, rows) - 1 are read.  Any split into ranges writes the
// bytes of one whole call.
#define decl_chroma_expand_band_fn(name) void (name)(int16_t *band, ptrdiff_t band_stride, \
    const int8_t *g, ptrdiff_t g_stride, const int16_t *h, int values, int rows, int zero_edges, int y0, int y1)
typedef decl_chroma_expand_band_fn(*chroma_expand_band_fn);

// Residual: exactly `values` values of each row, sign-extended.
#define decl_chroma_residual_fn(name) void (name)(int16_t *dst, ptrdiff_t dst_stride, \
    const int8_t *src, ptrdiff_t src_stride, int values, int rows)
typedef decl_chroma_residual_fn(*chroma_residual_fn);

// Blend of three levels into b0, in place: for ceil8(pairs) pairs of every
// row, both values of pair x get (w0[x] b0 + w1[x] b1 + w2[x] b2 + 128) >> 8,
// low 16 bits kept.  Rows in increasing order, 16 values per step: when
// 2*ceil8(pairs) exceeds the pitch, a row's last step lands on the start of
// the next row before that row is blended.  Weights are read at x < ceil8(pairs).
#define decl_chroma_blend_fn(name) void (name)(int16_t *b0, const int16_t *b1, const int16_t *b2, \
    ptrdiff_t stride, const uint8_t *w0, const uint8_t *w1, const uint8_t *w2, ptrdiff_t w_stride, \
    int pairs, int rows)
typedef decl_chroma_blend_fn(*chroma_blend_fn);

// Horizontal half of the 16-bit collapse expand: repeat pads written in place
// (elements -2, -1, 2*src_pairs, 2*src_pairs + 1), then 4 source pairs per
// step over ceil8(2*src_pairs) source values give 2*ceil8(2*src_pairs)
// output values (same pair formulas as chroma_expand_h_fn, 16-bit wrap),
// at pitch ceil8(2*dst_pairs) with spills as there; odd dst_pairs: last pair
// 7 p[src_pairs - 1].
#define decl_chroma_collapse_h_fn(name) void (name)(int16_t *dst, int16_t *src, \
    ptrdiff_t src_stride, int src_pairs, int rows, int dst_pairs)
typedef decl_chroma_collapse_h_fn(*chroma_collapse_h_fn);

// Vertical half of the collapse, rows y0 .. y1-1: E as in
// chroma_expand_band_fn but in 16-bit wrapping sums; dst += (E + 32) >> 6
// (the rounding shift itself exact, the addition wrapping to 16 bits) over
// ceil8(values) values of each row.  dst points at row 0, h at its row
// expand_v_first(y0), as for the band.
#define decl_chroma_collapse_v_fn(name) void (name)(int16_t *dst, ptrdiff_t stride, \
    const int16_t *h, int values, int rows, int y0, int y1)
typedef decl_chroma_collapse_v_fn(*chroma_collapse_v_fn);

struct ChromaDsp {
    chroma_copy_flip_fn copy_flip;
    chroma_reduce_h_fn reduce_h;
    chroma_reduce_v_fn reduce_v;
    chroma_expand_h_fn expand_h;
    chroma_expand_band_fn expand_band;
    chroma_residual_fn residual;
    chroma_blend_fn blend;
    chroma_collapse_h_fn collapse_h;
    chroma_collapse_v_fn collapse_v;
};

void chroma_dsp_init_c(ChromaDsp *dsp);
void chroma_dsp_init_neon(ChromaDsp *dsp); // Arm builds and SIMDe test builds only
void chroma_dsp_init_sse41(ChromaDsp *dsp); // x86-64 builds only
void chroma_dsp_init_avx2(ChromaDsp *dsp);  // x86-64 builds only
