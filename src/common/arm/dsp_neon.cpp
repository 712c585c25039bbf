#include "common/dsp.h"

void hdr_dsp_init_neon(HdrDsp *dsp) {
    fusion_dsp_init_neon(&dsp->fusion);
    chroma_dsp_init_neon(&dsp->chroma);
    tone_dsp_init_neon(&dsp->tone);
    reg_dsp_init_neon(&dsp->reg);
    ghost_dsp_init_neon(&dsp->ghost);
}
