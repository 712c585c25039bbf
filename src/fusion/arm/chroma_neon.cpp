#include "fusion/chroma_dsp.h"

void chroma_dsp_init_neon(ChromaDsp *dsp) {
    chroma_dsp_init_pyramid_neon(dsp);
    chroma_dsp_init_reconstruct_neon(dsp);
}
