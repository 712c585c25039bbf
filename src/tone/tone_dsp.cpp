#include "tone/tone_dsp.h"

void tone_dsp_init_c(ToneDsp *dsp) { (void)dsp; }
