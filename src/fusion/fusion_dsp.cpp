#include "fusion/fusion_dsp.h"

#include "fusion/pyramid_rows.h"

void fusion_dsp_init_c(FusionDsp *dsp) {
    dsp->weight_well_exposed = weight_well_exposed_c;
    dsp->weight_normalize = weight_normalize_c;
    dsp->weight_fused = weight_fused_c;
    dsp->weight_reduce_h = pyramid_reduce_h_c<54>;
    dsp->weight_reduce_v = pyramid_reduce_v_c<54, 12>;
    dsp->image_reduce_h = pyramid_reduce_h_c<6>;
    dsp->image_reduce_v = pyramid_reduce_v_c<6, 8>;
    dsp->image_expand_h = pyramid_expand_h_c<uint16_t, uint8_t, 16>;
    dsp->image_band_v = image_band_v_c;
    dsp->residual_copy = residual_copy_c;
    dsp->band_blend = band_blend_c;
    dsp->collapse_expand_h = pyramid_expand_h_c<int16_t, int16_t, 8>;
    dsp->collapse_add_v = collapse_add_v_c;
}
