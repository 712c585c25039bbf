#include "ghost/ghost_dsp.h"
#include "common/neon.h"

void ghost_dsp_init_neon(GhostDsp *dsp) { (void)dsp; }
