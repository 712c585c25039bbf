#include "fusion/fusion_dsp.h"

void fusion_dsp_init_c(FusionDsp *dsp) { (void)dsp; }
