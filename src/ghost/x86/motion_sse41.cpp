// SSE4.1 motion-row kernel.
#include "ghost/x86/motion_x86.h"

namespace {
decl_motion_row_fn(motion_row_sse41) { return motion_row_x86<Sse41>(dst, src, mask, width, rules); }
} // namespace

void ghost_dsp_init_sse41(GhostDsp *dsp) { dsp->motion_row = motion_row_sse41; }
