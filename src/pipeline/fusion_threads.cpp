// The two workers of a merge.  Thread 0 carries the LE frame's share and the
// HE offset search, thread 1 the HE frame's share and the AE bitmaps; the
// motion stage and the weight maps they share with the calling thread by
// rows (a third each), and thread 0 maps half of the output's rows.  They
// meet the calling thread only through the context's hand-off groups.
#include "common/log.h"
#include "api/merge_status.h"
#include "pipeline/handoff.h"
#include "pipeline/row_split.h"
#include "registration/bitmap.h"
#include "registration/offset_search.h"
#include "varo_hdr.h"

// Pyramid work of one frame after the normalised weights exist.
#define BUILD_PYRAMIDS(ctx, f, W, name)                                              \
    do {                                                                             \
        HDR_LOG("varo_hdr: WeightGaussPyramid " name " start\n");                    \
        WeightGaussPyramid(&(ctx)->w_gaussian_pyramid[f][0], (ctx)->inter_buf[f],   \
                           (ctx)->width, (ctx)->height, (ctx)->row_stride, (ctx)->levels); \
        HDR_LOG("varo_hdr: WeightGaussPyramid " name " end\n");                      \
        HDR_LOG("varo_hdr: ImageLaplacianPyramid " name " start\n");                 \
        ImageLaplacianPyramid(ctx, (ctx)->levels, f);                                \
        HDR_LOG("varo_hdr: ImageLaplacianPyramid " name " end\n");                   \
        HDR_LOG("varo_hdr: ImageLaplacianPyramidChroma " name " start\n");           \
        ImageLaplacianPyramidChroma(ctx, W, (ctx)->levels >> 1, f);                  \
        HDR_LOG("varo_hdr: ImageLaplacianPyramidChroma " name " end\n");             \
    } while (0)

// A worker's share of the motion stage, when the merge gets that far.
static void motion_stage(HdrContext *ctx, int part, int32_t *done) {
    HdrRowSplit *s = row_split(ctx);
    handoff_wait(&s->sync_rows, &s->sync_rows.go, &s->sync_rows.cond_go);
    if (s->motion_job == SPLIT_MOTION_NONE) return;
    motion_share(ctx, part);
    handoff_signal(&s->sync_rows, done, &s->sync_rows.cond_done);
}

extern "C" VARO_HDR_API void *FusionThreadFunc0(void *arg) {
    HdrContext *ctx = (HdrContext *)arg;
    HdrInput *in = ctx->input;
    const int32_t W = in->width, H = in->height;

    handoff_wait(&ctx->sync_bitmap, &ctx->sync_bitmap.start, &ctx->sync_bitmap.cond_start);
    if (ctx->reg_mode != 2)
        bitmap_calc(in->frame[LE_IDX].luma, (uint32_t)W, (uint32_t)H, &ctx->bitmap_pyramid[LE_IDX][0], false);
    handoff_signal(&ctx->sync_bitmap, &ctx->sync_bitmap.le_done, &ctx->sync_bitmap.cond_done);
    HDR_LOG("BitmapCalc 0 end\n");

    handoff_wait(&ctx->sync_offset, &ctx->sync_offset.go, &ctx->sync_offset.cond_go);
    if (ctx->reg_mode == 1) {
        ctx->he_offset.x = 0;
        ctx->he_offset.y = 0;
        ctx->min_err_bits_he = 0;
    } else {
        bool reused; // published to the caller by the offset hand-off below
        ctx->min_err_bits_he = (int32_t)offset_search(&ctx->bitmap_pyramid[HE_IDX][0],
                                                      &ctx->bitmap_pyramid[AE_IDX][0], &ctx->he_offset, &reused);
        merge_status(ctx)->he_offset_reused = reused;
    }
    const HdrOffset he = ctx->he_offset;
    handoff_signal(&ctx->sync_offset, &ctx->sync_offset.le_done, &ctx->sync_offset.cond_done);
    HDR_LOG("OffsetCalc 0 end, %d, %d\n", he.x, he.y);

    HdrRowSplit *split = row_split(ctx);
    motion_stage(ctx, 1, &split->sync_rows.le_done);
    if (handoff_wait_motion(ctx, &ctx->sync_motion.le_done)) return nullptr;

    handoff_wait(&ctx->sync_weight, &ctx->sync_weight.go, &ctx->sync_weight.cond_go);
    weight_share(ctx, 1);
    handoff_signal(&ctx->sync_weight, &ctx->sync_weight.le_done, &ctx->sync_weight.cond_done);
    HDR_LOG("varo_hdr: WeightWellExposed LE_IDX end\n");

    handoff_wait(&ctx->sync_pyramid, &ctx->sync_pyramid.go, &ctx->sync_pyramid.cond_go);
    BUILD_PYRAMIDS(ctx, LE_IDX, W, "LE_IDX");
    handoff_signal(&ctx->sync_pyramid, &ctx->sync_pyramid.le_done, &ctx->sync_pyramid.cond_done);
    HDR_LOG("varo_hdr: LE_IDX end\n");

    handoff_wait(&ctx->sync_chroma, &ctx->sync_chroma.go, &ctx->sync_chroma.cond_go);
    ImageReconstructChroma(ctx, ctx->levels >> 1);
    HDR_LOG("ImageReconstructChroma Chroma end\n");
    handoff_signal(&ctx->sync_chroma, &ctx->sync_chroma.done, &ctx->sync_chroma.cond_done);

    // The second half of the tone map once the caller has chosen the curve.
    handoff_wait(&split->sync_tone, &split->sync_tone.go, &split->sync_tone.cond_go);
    tone_share(ctx, 1);
    // Last touch of the context: the caller waits for this before it returns.
    handoff_signal(&split->sync_tone, &split->sync_tone.done, &split->sync_tone.cond_done);
    return nullptr;
}

extern "C" VARO_HDR_API void *FusionThreadFunc1(void *arg) {
    HdrContext *ctx = (HdrContext *)arg;
    HdrInput *in = ctx->input;
    const int32_t W = in->width, H = in->height;

    handoff_wait(&ctx->sync_bitmap, &ctx->sync_bitmap.start, &ctx->sync_bitmap.cond_start);
    bitmap_calc(in->frame[AE_IDX].luma, (uint32_t)W, (uint32_t)H, &ctx->bitmap_pyramid[AE_IDX][0], false);
    handoff_signal(&ctx->sync_bitmap, &ctx->sync_bitmap.he_done, &ctx->sync_bitmap.cond_done);
    HDR_LOG("BitmapCalc 1 end\n");

    motion_stage(ctx, 2, &row_split(ctx)->sync_rows.he_done);
    if (handoff_wait_motion(ctx, &ctx->sync_motion.he_done)) return nullptr;

    handoff_wait(&ctx->sync_weight, &ctx->sync_weight.go, &ctx->sync_weight.cond_go);
    weight_share(ctx, 2);
    handoff_signal(&ctx->sync_weight, &ctx->sync_weight.he_done, &ctx->sync_weight.cond_done);
    HDR_LOG("varo_hdr: WeightWellExposed HE_IDX end\n");

    handoff_wait(&ctx->sync_pyramid, &ctx->sync_pyramid.go, &ctx->sync_pyramid.cond_go);
    BUILD_PYRAMIDS(ctx, HE_IDX, W, "HE_IDX");
    // Logged before the last hand-off rather than after it, so that nothing
    // but this thread's exit runs once the caller may have returned.
    HDR_LOG("varo_hdr: HE_IDX end\n");
    handoff_signal(&ctx->sync_pyramid, &ctx->sync_pyramid.he_done, &ctx->sync_pyramid.cond_done);
    return nullptr;
}
