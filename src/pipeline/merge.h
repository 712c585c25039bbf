// The merge behind hdrThreeFrameCore, for a context and descriptor that the
// entry point has checked.
#pragma once
#include <stdint.h>

#include "varo_hdr.h"

int merge_three_frames(HdrContext *ctx, HdrInput *in, int64_t call_start_us);
