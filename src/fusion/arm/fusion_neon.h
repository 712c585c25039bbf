// The NEON kernels of the fusion, spread over the files of this folder and
// gathered into the tables by fusion_neon.cpp.
#pragma once
#include "fusion/chroma_dsp.h"
#include "fusion/fusion_dsp.h"

#include "common/neon.h"

decl_weight_well_exposed_fn(weight_well_exposed_neon);
decl_weight_normalize_fn(weight_normalize_neon);
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
