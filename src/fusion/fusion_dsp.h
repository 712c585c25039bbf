// Kernel table of the luma side of the fusion: weight maps, weight pyramid,
// luma Laplacian pyramid, blend and collapse.  Every member has a reference
// version (fusion_dsp_init_c) and may be replaced by an instruction-set
// version, which must leave exactly the same bytes everywhere it writes,
// padding and slack included: later passes read those bytes.
//
// Notation: ceil8(n) / ceil16(n) round n up to a multiple of 8 / 16.  "Pads
// in place" means the kernel writes a row's border values into the bytes just
// outside it before filtering that row, rows strictly in increasing order, so
// p[-2], p[-1] of row r land in row r-1's slack and are read (as garbage
// columns) only by rows after r-1 has been filtered.
#pragma once
#include <stddef.h>
#include <stdint.h>

// Weight map of one frame: dst[x] = min(255, curve[luma[x]] * mask[x]) with
// a 16-bit product.  Per row n = width & ~7 pixels (whole groups of 8; the
// last width mod 8 stay untouched); luma and dst then advance by
// stride - width past the last processed pixel (rows drift when width is
// not a multiple of 8), the mask by n only.  curve: 256 entries.
#define decl_weight_well_exposed_fn(name) void (name)(uint8_t *dst, const uint8_t *luma, \
    ptrdiff_t stride, const uint8_t *mask, const uint8_t *curve, int width, int height)
typedef decl_weight_well_exposed_fn(*weight_well_exposed_fn);

// In-place normalisation of three weight maps: s = w0 + w1 + w2,
// q = weight_int_tab[s], wk = min(255, (uint16_t)((wk * q + 128) >> 8)).
// Columns and row advance as weight_well_exposed (width & ~7 per row, the
// pointers move on by stride - width after them).
#define decl_weight_normalize_fn(name) void (name)(uint8_t *w0, uint8_t *w1, uint8_t *w2, \
    ptrdiff_t stride, int width, int height)
typedef decl_weight_normalize_fn(*weight_normalize_fn);

// The merge's three level-0 weight maps in one pass: for f = 0, 1, 2,
// w_f = min(255, curves[256 f + luma[f][x]] * mask[f][x]) as
// weight_well_exposed, then the three normalised together as
// weight_normalize, so the unnormalised maps never reach memory.  A null
// mask means every mask byte is 1.  Columns and row advance as
// weight_well_exposed (masks dense, luma and dst by stride - width past
// the last processed pixel).
#define decl_weight_fused_fn(name) void (name)(uint8_t *const *dst, const uint8_t *const *luma, \
    ptrdiff_t stride, const uint8_t *const *mask, const uint8_t *curves, int width, int height)
typedef decl_weight_fused_fn(*weight_fused_fn);

// Horizontal decimating 5-tap pass over every row r = 0 .. h-1 of src
// (w x h bytes, pitch src_stride).  Per row: pads in place p[-2] = p[2],
// p[-1] = p[1], p[w] = p[w-2] (in that order), then for k = 0 ..
// ceil8(w >> 1) - 1: dst[k] = p[2k-2] + c1 p[2k-1] + c0 p[2k] + c1 p[2k+1]
// + p[2k+2], exact in 16 bits.  Reads p[-2] .. p[2 ceil8(w >> 1) + 1]
// (the last byte unused); dst rows are ceil8(w >> 1) elements, back to back.
// weight: (c1, c0) = (4, 54), sums <= 16320; image: (4, 6), sums <= 4080.
#define decl_reduce_h_fn(name) void (name)(uint16_t *dst, uint8_t *src, ptrdiff_t src_stride, \
    int w, int h)
typedef decl_reduce_h_fn(*reduce_h_fn);

// Vertical decimating pass, output rows y0 .. y1-1 of a level of out_h >= 2
// rows (out_w = ceil8 of its width): dst points at output row 0, t at
// scratch row reduce_v_first(y0), the rows out_w elements apart; rows up to
// reduce_v_end(y1, out_h) - 1 are read.  Row k centred on t[2k]; top row
// mirrored (taps c0, 2 c1, 2), bottom row k = out_h-1 takes t[2k] in place
// of t[2k+2] (taps 1, c1, c0 + 1, c1).  Any split of 0 .. out_h into ranges
// writes the bytes of one whole call.
// weight ([1 4 54 4 1]): dst = min(255, (sum + 2048) >> 12), 32-bit sums.
// image ([1 4 6 4 1]):   dst = (sum + 128) >> 8, sums fit 16 bits.
#define decl_reduce_v_fn(name) void (name)(uint8_t *dst, ptrdiff_t dst_stride, const uint16_t *t, \
    int out_w, int out_h, int y0, int y1)
typedef decl_reduce_v_fn(*reduce_v_fn);

// First scratch row that output row y0 of a vertical reduce reads, and one
// past the last that rows below y1 read.
static inline int reduce_v_first(int y0) { return y0 > 0 ? 2 * y0 - 2 : 0; }
static inline int reduce_v_end(int y1, int out_h) { return y1 < out_h ? 2 * y1 + 1 : 2 * out_h; }

// Horizontal expanding pass of the image pyramid over rows j = 0 .. h-1 of
// q (w x h bytes, pitch src_stride).  Per row: pads in place q[-1] = q[0],
// q[w] = q[w-1]; for k = 0 .. ceil16(w) - 1: d[2k] = q[k-1] + 6 q[k] +
// q[k+1], d[2k+1] = 4 q[k] + 4 q[k+1]; then, when dst_w is odd,
// d[dst_w-1] = 7 q[w-1].  Reads q[-1] .. q[ceil16(w)]; row pitch in dst is
// ceil8(dst_w), so each row writes 2 ceil16(w) elements (and d[dst_w-1],
// one past them when w is a multiple of 16) and may spill up to 31 elements
// into the following rows' place (overwritten by them; the last row's spill
// stays).
#define decl_image_expand_h_fn(name) void (name)(uint16_t *dst, uint8_t *src, \
    ptrdiff_t src_stride, int w, int h, int dst_w)
typedef decl_image_expand_h_fn(*image_expand_h_fn);

// Vertical expanding pass and band, rows y0 .. y1-1 of a level of h >= 4
// rows: for every such row y and column x < ceil8(w), E from the scratch
// rows (pitch ceil8(w)) by the expand row rules (top 7/1 and 4/4, middle
// 1/6/1 and 4/4, bottom 1/7 and 8, odd h an extra row 7), band[y][x] =
// g[y][x] - ((E + 32) >> 6).  band and g point at row 0 of the level, hs at
// scratch row expand_v_first(y0); rows up to expand_v_end(y1, h) - 1 are
// read.  Any split of 0 .. h into ranges writes the bytes of one whole call.
#define decl_image_band_v_fn(name) void (name)(int16_t *band, ptrdiff_t band_stride, \
    const uint8_t *g, ptrdiff_t g_stride, const uint16_t *hs, int w, int h, int y0, int y1)
typedef decl_image_band_v_fn(*image_band_v_fn);

// First scratch row that output row y0 of a vertical expand reads, and one
// past the last that rows below y1 read (h: the output rows).
static inline int expand_v_first(int y0) { return y0 > 1 ? (y0 >> 1) - 1 : 0; }
static inline int expand_v_end(int y1, int h) {
    const int end = ((y1 - 1) >> 1) + 2;
    return end < (h >> 1) ? end : h >> 1;
}

// Residual: dst[y][x] = src[y][x] zero-extended, exactly w x h (no groups).
#define decl_residual_copy_fn(name) void (name)(int16_t *dst, const uint8_t *src, \
    ptrdiff_t stride, int w, int h)
typedef decl_residual_copy_fn(*residual_copy_fn);

// Blend in place over b0: for w8 (a multiple of 8) columns and h rows,
// b0 = (int16_t)((w0 b0 + w1 b1 + w2 b2 + 128) >> 8), 32-bit sum, arithmetic
// shift, low 16 bits kept.  bands pitch bstride elements, weights wstride.
#define decl_band_blend_fn(name) void (name)(int16_t *b0, const int16_t *b1, const int16_t *b2, \
    ptrdiff_t bstride, const uint8_t *w0, const uint8_t *w1, const uint8_t *w2, ptrdiff_t wstride, \
    int w8, int h)
typedef decl_band_blend_fn(*band_blend_fn);

// Horizontal expanding pass of the collapse, 16-bit with wrap-around, over
// rows j = 0 .. h-1 of q (pitch src_stride elements).  Per row: pads in
// place q[-1] = q[0], q[w] = q[w-1]; for k = 0 .. ceil8(w) - 1:
// d[2k] = q[k-1] + 6 q[k] + q[k+1], d[2k+1] = 4 q[k] + 4 q[k+1]; then, when
// dst_w is odd, d[dst_w-1] = 7 q[w-1].  Reads q[-1] .. q[ceil8(w)]; dst
// pitch ceil8(dst_w), each row writes 2 ceil8(w) elements and d[dst_w-1]
// (spills as above, at most 15 elements).
#define decl_collapse_expand_h_fn(name) void (name)(int16_t *dst, int16_t *src, \
    ptrdiff_t src_stride, int w, int h, int dst_w)
typedef decl_collapse_expand_h_fn(*collapse_expand_h_fn);

// Vertical expanding pass of the collapse, rows y0 .. y1-1 of a level of
// h >= 4 rows: E by the expand row rules in 16-bit wrap-around from the
// scratch rows (pitch ceil8(w)), then for every such row y and column
// x < ceil8(w): l[y][x] = (int16_t)(l[y][x] + ((E + 32) >> 6)), the shift
// arithmetic on the 16-bit E, done in 32 bits.  l points at row 0, hs at
// scratch row expand_v_first(y0), as for the band.
#define decl_collapse_add_v_fn(name) void (name)(int16_t *l, ptrdiff_t l_stride, \
    const int16_t *hs, int w, int h, int y0, int y1)
typedef decl_collapse_add_v_fn(*collapse_add_v_fn);

// Rows of h and their weights for output row y of a vertical expand with
// repeated edges (E = wa h[ra] + wb h[rb] + wc h[rc]); the extra row of an odd
// row count is 7 h[last].  Shared by the luma and chroma expands of every
// variant, 8- and 16-bit.
struct ExpandTaps {
    int ra, rb, rc;
    int16_t wa, wb, wc;
};
static inline ExpandTaps expand_taps(int y, int hrows) {
    const int j = y >> 1, last = hrows - 1;
    if (j > last) return {last, last, last, 0, 7, 0};
    if (y & 1) return {j, j, j + 1 > last ? last : j + 1, 0, 4, 4};
    return {j > 0 ? j - 1 : 0, j, j + 1 > last ? last : j + 1, 1, 6, 1};
}

struct FusionDsp {
    weight_well_exposed_fn weight_well_exposed;
    weight_normalize_fn weight_normalize;
    weight_fused_fn weight_fused;
    reduce_h_fn weight_reduce_h;
    reduce_v_fn weight_reduce_v;
    reduce_h_fn image_reduce_h;
    reduce_v_fn image_reduce_v;
    image_expand_h_fn image_expand_h;
    image_band_v_fn image_band_v;
    residual_copy_fn residual_copy;
    band_blend_fn band_blend;
    collapse_expand_h_fn collapse_expand_h;
    collapse_add_v_fn collapse_add_v;
};

void fusion_dsp_init_c(FusionDsp *dsp);
void fusion_dsp_init_neon(FusionDsp *dsp); // Arm builds and SIMDe test builds only
void fusion_dsp_init_sse41(FusionDsp *dsp); // x86-64 builds only
void fusion_dsp_init_avx2(FusionDsp *dsp);  // x86-64 builds only

// Reference kernels, defined beside their stages.  One reduce and one
// expand_h reference serve both pyramids (see pyramid_rows.h).
decl_weight_well_exposed_fn(weight_well_exposed_c);
decl_weight_normalize_fn(weight_normalize_c);
decl_weight_fused_fn(weight_fused_c);
decl_image_band_v_fn(image_band_v_c);
decl_residual_copy_fn(residual_copy_c);
decl_band_blend_fn(band_blend_c);
decl_collapse_add_v_fn(collapse_add_v_c);
