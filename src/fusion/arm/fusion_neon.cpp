#include "fusion/fusion_dsp.h"
#include "common/neon.h"

void fusion_dsp_init_neon(FusionDsp *dsp) { (void)dsp; }
