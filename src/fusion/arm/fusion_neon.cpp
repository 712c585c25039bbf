#include "fusion/arm/fusion_neon.h"

void fusion_dsp_init_neon(FusionDsp *dsp) {
    fusion_dsp_init_weight_neon(dsp);
    fusion_dsp_init_laplacian_neon(dsp);
    fusion_dsp_init_reconstruct_neon(dsp);
}
