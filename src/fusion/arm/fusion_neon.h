// The NEON kernels of the luma fusion, one overlay per source file.
#pragma once
#include "fusion/fusion_dsp.h"

void fusion_dsp_init_weight_neon(FusionDsp *dsp);
void fusion_dsp_init_laplacian_neon(FusionDsp *dsp);
void fusion_dsp_init_reconstruct_neon(FusionDsp *dsp);
