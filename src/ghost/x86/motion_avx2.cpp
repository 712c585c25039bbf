// AVX2 motion-row kernel: the SSE4.1 steps at twice the width.
#include "ghost/x86/motion_x86.h"

namespace {
decl_motion_row_fn(motion_row_avx2) { return motion_row_x86<Avx2>(dst, src, mask, width, rules); }
} // namespace

void ghost_dsp_init_avx2(GhostDsp *dsp) { dsp->motion_row = motion_row_avx2; }
