// What a merge keeps behind the public context record (whose layout hosts
// know and which therefore cannot grow): the merge status, and the hand-offs
// and jobs of the phases that the three threads share by rows.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "ghost/ghost_dsp.h"
#include "tone/normalize.h"
#include "varo_hdr.h"

enum : int32_t {
    MOTION_JOB_NONE = 0,  // the merge stops before the motion phase
    MOTION_JOB_COPY = 1,  // mask fills and plain base copies
    MOTION_JOB_GHOST = 2, // mask fills past the overlap and the motion comparison
};

// Hand-offs as the six public groups: sync_rows.go releases the workers'
// motion rows (le_done / he_done: thread 0's / thread 1's written); sync_tone.go
// releases thread 0's half of the tone map, sync_tone.done reports it.  The
// other fields are written before the release that publishes them.  The
// status is written by the calling thread, except the HE search's scratch
// failure, which thread 0 writes before the offset hand-off publishes it.
struct MergeState {
    HdrMergeStatus status;
    HdrHandoff sync_rows;
    HdrHandoff sync_tone;
    int32_t motion_job;
    uint32_t counted[3]; // each share's veto count, written by its thread
    MotionRules rules;
    ToneJob tone;
};

// One allocation: the public record first, so a context pointer is the
// block's pointer.
struct HdrContextBlock {
    HdrContext ctx;
    MergeState merge;
};

inline MergeState *merge_state(HdrContext *ctx) {
    return &reinterpret_cast<HdrContextBlock *>(ctx)->merge;
}
inline const MergeState *merge_state(const HdrContext *ctx) {
    return &reinterpret_cast<const HdrContextBlock *>(ctx)->merge;
}
inline HdrMergeStatus *merge_status(HdrContext *ctx) { return &merge_state(ctx)->status; }

// Records how the call ended: outcome, reason, return code and the output
// rectangle it left in the descriptor (when it wrote one).
void status_finish(HdrContext *ctx, const HdrInput *in, int result, HdrMergeOutcome outcome,
                   HdrFallbackReason reason, int64_t call_start_us);
