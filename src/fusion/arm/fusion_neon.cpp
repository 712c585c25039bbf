#include "fusion/arm/fusion_neon.h"

#include "fusion/arm/reduce_neon.h"

void fusion_dsp_init_neon(FusionDsp *dsp) {
    dsp->weight_well_exposed = weight_well_exposed_neon;
    dsp->weight_normalize = weight_normalize_neon;
    dsp->weight_fused = weight_fused_neon;
    dsp->weight_reduce_h = pyramid_reduce_h_neon<54>;
    dsp->weight_reduce_v = weight_reduce_v_neon;
    dsp->image_reduce_h = pyramid_reduce_h_neon<6>;
    dsp->image_reduce_v = image_reduce_v_neon;
    dsp->image_expand_h = image_expand_h_neon;
    dsp->image_band_v = image_band_v_neon;
    dsp->residual_copy = residual_copy_neon;
    dsp->band_blend = band_blend_neon;
    dsp->collapse_expand_h = collapse_expand_h_neon;
    dsp->collapse_add_v = collapse_add_v_neon;
}

void chroma_dsp_init_neon(ChromaDsp *dsp) {
    dsp->copy_flip = chroma_copy_flip_neon;
    dsp->reduce_h = chroma_reduce_h_neon;
    dsp->reduce_v = chroma_reduce_v_neon;
    dsp->expand_h = chroma_expand_h_neon;
    dsp->expand_band = chroma_expand_band_neon;
    dsp->residual = chroma_residual_neon;
    dsp->blend = chroma_blend_neon;
    dsp->collapse_h = chroma_collapse_h_neon;
    dsp->collapse_v = chroma_collapse_v_neon;
}
