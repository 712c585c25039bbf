// Kernel table of this subsystem.  Every member has a reference version
// (ghost_dsp_init_c) and may be replaced by an instruction-set version.
#pragma once
#include <stddef.h>
#include <stdint.h>

struct GhostDsp {
    int placeholder_; // kernels are added as the stages are built
};

void ghost_dsp_init_c(GhostDsp *dsp);
void ghost_dsp_init_neon(GhostDsp *dsp); // Arm builds and SIMDe test builds only
