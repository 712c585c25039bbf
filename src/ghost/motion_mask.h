// The pieces of MotionMask, for a merge that shares its rows between threads.
#pragma once
#include <stdint.h>

#include "ghost/ghost_dsp.h"
#include "varo_hdr.h"

// The comparisons for this merge's exposure ratios and flags (logs the ratios).
void motion_rules(MotionRules *rules, const HdrContext *ctx, const HdrInput *in);
// Overlap rows y0 .. y1-1: level-0 copies and mask bytes of all three frames;
// returns the columns counted towards the veto.
uint32_t motion_rows(HdrContext *ctx, const HdrInput *in, const MotionRules *rules, int32_t y0,
                     int32_t y1);
// Too many replaced pixels: ghosting too strong to fuse.
inline int motion_veto(const MotionRules *rules, uint32_t counted) {
    return rules->he_rule == MOTION_HE_LONG && counted > 840000u ? 1 : 0;
}
