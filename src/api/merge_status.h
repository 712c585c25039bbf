// Per-context record of what the current merge decided, kept in the context's
// own allocation behind the public HdrContext so that its layout stays as
// hosts know it.  Written by the calling thread; the HE search's scratch
// failure is written by thread 0 before the offset hand-off, which publishes it.
// The row-split stages' hand-offs and job live here for the same reason.
#pragma once
#include <stdint.h>
#include <sys/time.h>

#include "pipeline/row_split.h"
#include "varo_hdr.h"

struct HdrContextBlock {
    HdrContext ctx; // first, so a context pointer is the block's pointer
    HdrMergeStatus status;
    HdrRowSplit split;
};

inline HdrMergeStatus *merge_status(HdrContext *ctx) {
    return &reinterpret_cast<HdrContextBlock *>(ctx)->status;
}

inline HdrRowSplit *row_split(HdrContext *ctx) {
    return &reinterpret_cast<HdrContextBlock *>(ctx)->split;
}

inline int64_t status_now_us() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return (int64_t)tv.tv_sec * 1000000 + tv.tv_usec;
}

// Records how the call ended: outcome, reason, return code and the output
// rectangle it left in the descriptor (when it wrote one).
void status_finish(HdrContext *ctx, const HdrInput *in, int result, HdrMergeOutcome outcome,
                   HdrFallbackReason reason, int64_t call_start_us);

