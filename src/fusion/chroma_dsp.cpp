#include "fusion/chroma_dsp.h"

void chroma_dsp_init_c(ChromaDsp *dsp) { (void)dsp; }
