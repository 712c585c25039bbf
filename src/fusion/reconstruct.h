// The merge's luma reconstruction, which also gathers the tone statistics of
// the fused luma while its rows are still in cache.
#pragma once
#include <stdint.h>

#include "tone/tone_dsp.h"
#include "varo_hdr.h"

// ImageReconstruct, adding every row of the finished level 0 (the first
// width & ~15 values) into *stats once; stats null gathers nothing.
void reconstruct_luma(HdrContext *ctx, int32_t level_count, ToneAcc *stats);
