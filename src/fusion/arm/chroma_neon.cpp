#include "fusion/chroma_dsp.h"
#include "common/neon.h"

void chroma_dsp_init_neon(ChromaDsp *dsp) { (void)dsp; }
