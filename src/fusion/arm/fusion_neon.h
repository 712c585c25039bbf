// The NEON kernels of the fusion, spread over the files of this folder and
// gathered into the tables by fusion_neon.cpp.
#pragma once
#include "fusion/chroma_dsp.h"
#include "fusion/fusion_dsp.h"

#include "common/neon.h"

// (w0 a0 + w1 a1 + w2 a2 + 128) >> 8 of 8 lanes, the weights already widened:
// 32-bit sums, and vrshrn keeps the low 16 bits as the scalar (int16_t)
// conversion does.  The luma and chroma blends share it.
static inline int16x8_t blend3_s16(int16x8_t a0, int16x8_t a1, int16x8_t a2, int16x8_t k0, int16x8_t k1,
                                   int16x8_t k2) {
    int32x4_t lo = vmull_s16(vget_low_s16(a0), vget_low_s16(k0));
    int32x4_t hi = vmull_s16(vget_high_s16(a0), vget_high_s16(k0));
    lo = vmlal_s16(lo, vget_low_s16(a1), vget_low_s16(k1));
    hi = vmlal_s16(hi, vget_high_s16(a1), vget_high_s16(k1));
    lo = vmlal_s16(lo, vget_low_s16(a2), vget_low_s16(k2));
    hi = vmlal_s16(hi, vget_high_s16(a2), vget_high_s16(k2));
    return vcombine_s16(vrshrn_n_s32(lo, 8), vrshrn_n_s32(hi, 8));
}

decl_weight_well_exposed_fn(weight_well_exposed_neon);
decl_weight_normalize_fn(weight_normalize_neon);
decl_weight_fused_fn(weight_fused_neon);
decl_reduce_v_fn(weight_reduce_v_neon);
decl_reduce_v_fn(image_reduce_v_neon);
decl_image_expand_h_fn(image_expand_h_neon);
decl_image_band_v_fn(image_band_v_neon);
decl_residual_copy_fn(residual_copy_neon);
decl_band_blend_fn(band_blend_neon);
decl_collapse_expand_h_fn(collapse_expand_h_neon);
decl_collapse_add_v_fn(collapse_add_v_neon);

decl_chroma_copy_flip_fn(chroma_copy_flip_neon);
decl_chroma_reduce_h_fn(chroma_reduce_h_neon);
decl_chroma_reduce_v_fn(chroma_reduce_v_neon);
decl_chroma_expand_h_fn(chroma_expand_h_neon);
decl_chroma_expand_band_fn(chroma_expand_band_neon);
decl_chroma_residual_fn(chroma_residual_neon);
decl_chroma_blend_fn(chroma_blend_neon);
decl_chroma_collapse_h_fn(chroma_collapse_h_neon);
decl_chroma_collapse_v_fn(chroma_collapse_v_neon);
