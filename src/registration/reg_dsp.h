// Kernel table of this subsystem.  Every member has a reference version
// (reg_dsp_init_c) and may be replaced by an instruction-set version.
#pragma once
#include <stddef.h>
#include <stdint.h>

struct RegDsp {
    int placeholder_; // kernels are added as the stages are built
};

void reg_dsp_init_c(RegDsp *dsp);
void reg_dsp_init_neon(RegDsp *dsp); // Arm builds and SIMDe test builds only
