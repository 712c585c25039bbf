// Kernel table of this subsystem.  Every member has a reference version
// (tone_dsp_init_c) and may be replaced by an instruction-set version.
#pragma once
#include <stddef.h>
#include <stdint.h>

struct ToneDsp {
    int placeholder_; // kernels are added as the stages are built
};

void tone_dsp_init_c(ToneDsp *dsp);
void tone_dsp_init_neon(ToneDsp *dsp); // Arm builds and SIMDe test builds only
