// The calling thread's share of registration: HE bitmaps here while the
// workers build LE's and AE's, then the LE offset here while thread 0 finds
// HE's, and the crop origins that put matching content at equal coordinates.
#include "common/log.h"
#include "api/merge_status.h"
#include "pipeline/handoff.h"
#include "registration/bitmap.h"
#include "registration/offset_search.h"
#include "varo_hdr.h"

static inline int32_t min3_with_zero(int32_t a, int32_t b) {
    int32_t m = 0;
    if (a < m) m = a;
    if (b < m) m = b;
    return m;
}

extern "C" VARO_HDR_API int ImageRegistration(HdrContext *ctx, HdrInput *in, int32_t crop_origins[6]) {
    handoff_release(&ctx->sync_bitmap, &ctx->sync_bitmap.start, &ctx->sync_bitmap.cond_start);
    if (ctx->reg_mode != 1)
        bitmap_calc(in->frame[HE_IDX].luma, (uint32_t)in->width, (uint32_t)in->height,
                    &ctx->bitmap_pyramid[HE_IDX][0], false);
    handoff_wait2(&ctx->sync_bitmap, &ctx->sync_bitmap.le_done, &ctx->sync_bitmap.he_done,
                  &ctx->sync_bitmap.cond_done);
    HDR_LOG("BitmapCalc 2 end\n");

    handoff_release(&ctx->sync_offset, &ctx->sync_offset.go, &ctx->sync_offset.cond_go);
    uint32_t err = 0;
    if (ctx->reg_mode == 2) {
        ctx->le_offset.x = 0;
        ctx->le_offset.y = 0;
    } else {
        bool reused;
        err = offset_search(&ctx->bitmap_pyramid[LE_IDX][0], &ctx->bitmap_pyramid[AE_IDX][0],
                            &ctx->le_offset, &reused);
        merge_status(ctx)->le_offset_reused = reused;
    }
    ctx->min_err_bits_le = (int32_t)err;
    handoff_wait(&ctx->sync_offset, &ctx->sync_offset.le_done, &ctx->sync_offset.cond_done);
    HDR_LOG("OffsetCalc 2 end, %d, %d\n", ctx->le_offset.x, ctx->le_offset.y);

    // A side frame's pixel (r, c) matches AE's (r - y, c - x): start each
    // frame where the common overlap starts, the smallest origin being 0.
    const int32_t mx = min3_with_zero(ctx->he_offset.x, ctx->le_offset.x);
    const int32_t my = min3_with_zero(ctx->he_offset.y, ctx->le_offset.y);
    crop_origins[0] = ctx->he_offset.x - mx;
    crop_origins[1] = ctx->he_offset.y - my;
    crop_origins[2] = ctx->le_offset.x - mx;
    crop_origins[3] = ctx->le_offset.y - my;
    crop_origins[4] = -mx;
    crop_origins[5] = -my;
    return 0;
}
