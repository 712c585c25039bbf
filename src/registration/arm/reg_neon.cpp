#include "registration/reg_dsp.h"
#include "common/neon.h"

void reg_dsp_init_neon(RegDsp *dsp) { (void)dsp; }
