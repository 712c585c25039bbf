#include "registration/reg_dsp.h"

void reg_dsp_init_c(RegDsp *dsp) { (void)dsp; }
