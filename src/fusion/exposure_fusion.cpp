// The calling thread's share of the fusion: its rows of the weight maps and
// the tone map, AE's pyramids, the steps that need all three frames, and the
// hand-offs that pace the workers.
#include <stdio.h>

#include "api/merge_status.h"
#include "common/log.h"
#include "fusion/reconstruct.h"
#include "pipeline/handoff.h"
#include "pipeline/row_split.h"
#include "varo_hdr.h"

extern "C" VARO_HDR_API int ExposureFusion(HdrContext *ctx, HdrInput *in) {
    const int32_t W = in->width;

    const int64_t started = hdr_stage_start(&start_time_6);
    const int64_t weights_start = status_now_us();
    // Each thread weighs and normalises a third of the rows of all three frames.
    handoff_release(&ctx->sync_weight, &ctx->sync_weight.go, &ctx->sync_weight.cond_go);
    weight_share(ctx, 0);
    handoff_wait2(&ctx->sync_weight, &ctx->sync_weight.le_done, &ctx->sync_weight.he_done,
                  &ctx->sync_weight.cond_done);
    HDR_LOG("varo_hdr: WeightWellExposed AE_IDX end\n");
    hdr_stage_end(&end_time_6, &total_time_6, started);
    merge_status(ctx)->weights_us = status_now_us() - weights_start;

    HDR_LOG("normalize weighting done!\n");

    handoff_release(&ctx->sync_pyramid, &ctx->sync_pyramid.go, &ctx->sync_pyramid.cond_go);
    HDR_LOG("varo_hdr: WeightGaussPyramid AE_IDX start\n");
    WeightGaussPyramid(&ctx->w_gaussian_pyramid[AE_IDX][0], ctx->inter_buf[AE_IDX], ctx->width,
                       ctx->height, ctx->row_stride, ctx->levels);
    HDR_LOG("varo_hdr: WeightGaussPyramid AE_IDX end\n");
    HDR_LOG("varo_hdr: ImageLaplacianPyramid AE_IDX start\n");
    ImageLaplacianPyramid(ctx, ctx->levels, AE_IDX);
    HDR_LOG("varo_hdr: ImageLaplacianPyramid AE_IDX end\n");
    HDR_LOG("varo_hdr: ImageLaplacianPyramidChroma AE_IDX start\n");
    ImageLaplacianPyramidChroma(ctx, W, ctx->levels >> 1, AE_IDX);
    HDR_LOG("varo_hdr: ImageLaplacianPyramidChroma AE_IDX end\n");
    handoff_wait2(&ctx->sync_pyramid, &ctx->sync_pyramid.le_done, &ctx->sync_pyramid.he_done,
                  &ctx->sync_pyramid.cond_done);
    HDR_LOG("varo_hdr: AE_IDX end\n");

    // Luma here while thread 0 reconstructs the chroma: disjoint planes.
    handoff_signal(&ctx->sync_chroma, &ctx->sync_chroma.go, &ctx->sync_chroma.cond_go);
    // The tone statistics are gathered strip by strip as the collapse
    // finishes the rows, not in a pass of their own over the plane once it
    // has left the cache.
    ToneAcc stats = {};
    reconstruct_luma(ctx, ctx->levels, &stats);
    HDR_LOG("varo_hdr: ImageReconstruct end\n");
    // The curve reads the fused luma only, so it need not wait for the
    // chroma; the mapping is shared by rows with thread 0.
    HdrRowSplit *split = row_split(ctx);
    tone_prepare(ctx, &split->tone, in->frame[HE_IDX].luma, in->frame[HE_IDX].chroma, W, &stats);
    handoff_wait(&ctx->sync_chroma, &ctx->sync_chroma.done, &ctx->sync_chroma.cond_done);

    puts("ImageNormalize LUMA end");
    handoff_release(&split->sync_tone, &split->sync_tone.go, &split->sync_tone.cond_go);
    tone_share(ctx, 0);
    handoff_wait(&split->sync_tone, &split->sync_tone.done, &split->sync_tone.cond_done);
    HDR_LOG("varo_hdr: ImageNormalize end\n");
    return 0;
}
