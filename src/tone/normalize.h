// The pieces of ImageNormalize, for a merge that shares the mapping's rows
// between threads.
#pragma once
#include <stdint.h>

#include "tone/tone_dsp.h"
#include "varo_hdr.h"

// The tone curve of one merge and where it maps to.
struct ToneJob {
    uint8_t lut[512];
    int32_t gain[512];
    ToneCurve curve; // points into lut and gain
    uint8_t *out_luma, *out_chroma;
    int32_t out_pitch, row_pairs; // row_pairs 0: nothing to map
};

// The curve that the statistics of the fused luma choose: `gathered` holds
// them when the caller added up every row of the plane already, else (null)
// they are gathered here in one pass.
void tone_prepare(HdrContext *ctx, ToneJob *job, uint8_t *out_luma, uint8_t *out_chroma,
                  int32_t out_pitch, const ToneAcc *gathered = nullptr);
// Row pairs p0 .. p1-1 of the mapping; any split gives the bytes of one call.
void tone_map_pairs(const HdrContext *ctx, const ToneJob *job, int32_t p0, int32_t p1);
