#include "tone/tone_dsp.h"
#include "common/neon.h"

void tone_dsp_init_neon(ToneDsp *dsp) { (void)dsp; }
