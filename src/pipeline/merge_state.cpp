#include "pipeline/merge_state.h"

#include "pipeline/timing.h"

void status_finish(HdrContext *ctx, const HdrInput *in, int result, HdrMergeOutcome outcome,
                   HdrFallbackReason reason, int64_t call_start_us) {
    HdrMergeStatus *s = merge_status(ctx);
    s->result = result;
    s->outcome = outcome;
    s->reason = reason;
    if (outcome == HDR_OUTCOME_MERGED || outcome == HDR_OUTCOME_MERGED_GHOST ||
        outcome == HDR_OUTCOME_FALLBACK) {
        s->out_x = in->out_x;
        s->out_y = in->out_y;
        s->out_width = in->out_width;
        s->out_height = in->out_height;
    }
    s->total_us = status_now_us() - call_start_us;
}
