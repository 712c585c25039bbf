// The stages that the three threads of a merge share by rows rather than by
// frame: the motion stage (mask fills, base copies or the motion comparison),
// the fused level-0 weight maps and the tone map.  Shares are numbered
// 0 = calling thread, 1 = thread 0, 2 = thread 1; each is a contiguous range.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "ghost/ghost_dsp.h"
#include "tone/normalize.h"
#include "varo_hdr.h"

enum : int32_t {
    SPLIT_MOTION_NONE = 0,  // the merge stops before the motion stage
    SPLIT_MOTION_COPY = 1,  // mask fills and plain base copies
    SPLIT_MOTION_GHOST = 2, // mask fills past the overlap and the motion comparison
};

// Kept behind the public context (HdrContextBlock).  Hand-offs as the six
// public groups: sync_rows.go releases the motion stage's shares (le_done /
// he_done: thread 0's / thread 1's written); sync_tone.go releases thread 0's
// half of the tone map, sync_tone.done reports it.  The other fields are
// written before the release that publishes them.
struct HdrRowSplit {
    HdrHandoff sync_rows;
    HdrHandoff sync_tone;
    int32_t motion_job;
    uint32_t counted[3]; // each share's veto count, written by its thread
    MotionRules rules;
    ToneJob tone;
};

// [*begin, *end) of share `part` of n items out of `parts`.
inline void split_range(size_t n, int part, int parts, size_t *begin, size_t *end) {
    *begin = n * (size_t)part / (size_t)parts;
    *end = n * (size_t)(part + 1) / (size_t)parts;
}

// One thread's share of each stage (the caller sets the job up first).
void motion_share(HdrContext *ctx, int part);
void weight_share(HdrContext *ctx, int part);
void tone_share(HdrContext *ctx, int part); // parts 0 and 1 only
