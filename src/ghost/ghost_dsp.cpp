#include "ghost/ghost_dsp.h"

void ghost_dsp_init_c(GhostDsp *dsp) { (void)dsp; }
