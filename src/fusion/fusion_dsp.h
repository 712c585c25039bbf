// Kernel table of this subsystem.  Every member has a reference version
// (fusion_dsp_init_c) and may be replaced by an instruction-set version.
#pragma once
#include <stddef.h>
#include <stdint.h>

struct FusionDsp {
    int placeholder_; // kernels are added as the stages are built
};

void fusion_dsp_init_c(FusionDsp *dsp);
void fusion_dsp_init_neon(FusionDsp *dsp); // Arm builds and SIMDe test builds only
