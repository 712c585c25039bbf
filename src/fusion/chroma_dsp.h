// Kernel table of this subsystem.  Every member has a reference version
// (chroma_dsp_init_c) and may be replaced by an instruction-set version.
#pragma once
#include <stddef.h>
#include <stdint.h>

struct ChromaDsp {
    int placeholder_; // kernels are added as the stages are built
};

void chroma_dsp_init_c(ChromaDsp *dsp);
void chroma_dsp_init_neon(ChromaDsp *dsp); // Arm builds and SIMDe test builds only
