// The pieces of MotionMask and of the plain copies that replace it when no
// frame needs ghost masks, for a merge that shares its rows between threads.
#pragma once
#include <stddef.h>
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

// Bytes begin .. end-1 of the three masks (in the input's size) set to 1.
void motion_mask_fill(HdrContext *ctx, size_t begin, size_t end);
// Without ghost masks: frame f's input rows r0 .. r1-1 from its crop origin
// into its pyramid base, `last` for the share that ends the plane.
void copy_base_rows(HdrContext *ctx, int f, size_t r0, size_t r1, bool last);
