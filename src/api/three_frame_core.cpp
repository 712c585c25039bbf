// The merge entry points: hdrThreeFrameCore checks the descriptor and hands
// the merge to the pipeline (src/pipeline/merge.cpp, which reads as the
// merge's table of phases).
#include "pipeline/merge.h"
#include "pipeline/merge_state.h"
#include "pipeline/timing.h"
#include "varo_hdr.h"

namespace {

bool descriptor_valid(const HdrContext *ctx, const HdrInput *in) {
    if (!ctx || !in) return false;
    for (int f = 0; f < 3; ++f)
        if (!in->frame[f].luma || !in->frame[f].chroma) return false;
    const int32_t W = in->width, H = in->height;
    return W > 0 && H > 0 && (W & 1) == 0 && (H & 1) == 0 && W <= VARO_HDR_MAX_WIDTH &&
           H <= VARO_HDR_MAX_HEIGHT;
}

} // namespace

extern "C" VARO_HDR_API int hdrAbortProcessing(void) { return 0; }

extern "C" VARO_HDR_API int hdrThreeFrameCore(HdrContext *ctx, HdrInput *in) {
    const int64_t call_start = status_now_us();
    if (ctx) *merge_status(ctx) = HdrMergeStatus{};
    if (!descriptor_valid(ctx, in)) {
        if (ctx) status_finish(ctx, in, VARO_HDR_ERR_INVALID, HDR_OUTCOME_REJECTED, HDR_FALLBACK_NONE, call_start);
        return VARO_HDR_ERR_INVALID;
    }
    return merge_three_frames(ctx, in, call_start);
}
