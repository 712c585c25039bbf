// The merge entry point: starts the workers, registers the frames, decides
// on ghost handling, fuses, and writes the picture over the HE frame.
#include <math.h>
#include <string.h>

#include "api/merge_status.h"
#include "common/arith.h"
#include "common/geometry.h"
#include "common/log.h"
#include "ghost/motion_mask.h"
#include "pipeline/handoff.h"
#include "pipeline/row_split.h"
#include "varo_hdr.h"

namespace {

int32_t exposure_product(const HdrExposure &e) {
    return cvt_f32_s32(e.exposure_scale * (float)e.exposure_units);
}

// 32-bit wrapping difference, absolute value that keeps INT32_MIN.
int32_t abs_diff_wrapping(int32_t a, int32_t b) {
    uint32_t d = (uint32_t)a - (uint32_t)b;
    return (int32_t)((int32_t)d < 0 ? 0u - d : d);
}

bool descriptor_valid(const HdrContext *ctx, const HdrInput *in) {
    if (!ctx || !in) return false;
    for (int f = 0; f < 3; ++f)
        if (!in->frame[f].luma || !in->frame[f].chroma) return false;
    const int32_t W = in->width, H = in->height;
    return W > 0 && H > 0 && (W & 1) == 0 && (H & 1) == 0 && W <= VARO_HDR_MAX_WIDTH &&
           H <= VARO_HDR_MAX_HEIGHT;
}

// The whole reference frame becomes the output.
void copy_reference(HdrInput *in) {
    const uint32_t W = (uint32_t)in->width, H = (uint32_t)in->height;
    memmove(in->frame[HE_IDX].luma, in->frame[AE_IDX].luma, (size_t)W * H);
    memmove(in->frame[HE_IDX].chroma, in->frame[AE_IDX].chroma, (size_t)(W * H / 2));
    in->out_x = 0;
    in->out_y = 0;
    in->out_width = (int32_t)W;
    in->out_height = (int32_t)H;
}

// Starts the workers' shares of the motion stage, or lets them pass it.
void release_motion_stage(HdrContext *ctx, int32_t job) {
    HdrRowSplit *s = row_split(ctx);
    s->motion_job = job;
    handoff_release(&s->sync_rows, &s->sync_rows.go, &s->sync_rows.cond_go);
}

// Stops both workers at the motion hand-off and returns once neither of
// them touches the context any more.
int release_workers(HdrContext *ctx, int result) {
    release_motion_stage(ctx, SPLIT_MOTION_NONE);
    ctx->fusion_skip = 1;
    handoff_release(&ctx->sync_motion, &ctx->sync_motion.go, &ctx->sync_motion.cond_go);
    handoff_wait_workers_left(ctx);
    return result;
}

// When a worker could not be started, the other one (if any) is walked
// through its hand-offs to the motion exit and nothing is written.
int abandon_after_thread_failure(HdrContext *ctx, bool started0, bool started1) {
    ctx->reg_mode = 2; // thread 0 skips its bitmaps
    ctx->fusion_skip = 1;
    handoff_release(&ctx->sync_bitmap, &ctx->sync_bitmap.start, &ctx->sync_bitmap.cond_start);
    handoff_release(&ctx->sync_offset, &ctx->sync_offset.go, &ctx->sync_offset.cond_go);
    release_motion_stage(ctx, SPLIT_MOTION_NONE);
    handoff_release(&ctx->sync_motion, &ctx->sync_motion.go, &ctx->sync_motion.cond_go);
    HdrHandoff *g = &ctx->sync_motion;
    if (started0) handoff_wait(g, &g->le_done, &g->cond_done);
    if (started1) handoff_wait(g, &g->he_done, &g->cond_done);
    HDR_LOG("varo_hdr: worker thread could not be started\n");
    return VARO_HDR_ERR_THREAD;
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
    HdrMergeStatus *status = merge_status(ctx);
    const int32_t W = in->width, H = in->height;

    int64_t *const totals[8] = {&total_time_1, &total_time_2, &total_time_3, &total_time_4,
                                &total_time_5, &total_time_6, &total_time_7, &total_time_8};
    for (int64_t *total : totals) hdr_counter_set(total, 0);
    ctx->reg_mode = 0;

    const int32_t pHE = exposure_product(in->exposure[HE_IDX]);
    const int32_t pLE = exposure_product(in->exposure[LE_IDX]);
    const int32_t pAE = exposure_product(in->exposure[AE_IDX]);
    const int32_t dAL = abs_diff_wrapping(pAE, pLE);
    const int32_t dAH = abs_diff_wrapping(pAE, pHE);
    const int32_t dLH = abs_diff_wrapping(pLE, pHE);
    HDR_LOG("[%s:%d] hdr_mode: %d, %d, %d, %d, %d, %d, %d, size %d %d", __func__, __LINE__, pAE, pLE,
            pHE, dAL, dAH, dLH, 0, W, H);
    // Kept as the camera stack expects it, although with 32-bit differences
    // the three can never all be negative at once.
    if ((dAH & dLH & dAL) < 0) {
        HDR_LOG("[%s:%d] hdr_mode: no HDR needed ", __func__, __LINE__);
        status_finish(ctx, in, VARO_HDR_NO_HDR_NEEDED, HDR_OUTCOME_NO_HDR_NEEDED, HDR_FALLBACK_NONE,
                      call_start);
        return VARO_HDR_NO_HDR_NEEDED;
    }

    ctx->fusion_skip = 0;
    ctx->input = in;
    handoff_reset_groups(ctx);

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    const bool started0 = pthread_create(&ctx->thread[0], &attr, FusionThreadFunc0, ctx) == 0;
    const bool started1 = pthread_create(&ctx->thread[1], &attr, FusionThreadFunc1, ctx) == 0;
    pthread_attr_destroy(&attr);
    if (!started0 || !started1) {
        const int rc = abandon_after_thread_failure(ctx, started0, started1);
        status_finish(ctx, in, rc, HDR_OUTCOME_REJECTED, HDR_FALLBACK_NONE, call_start);
        return rc;
    }

    HDR_LOG("[%s:%d] begin ... ", __func__, __LINE__);

    const int64_t t_reg = hdr_stage_start(&start_time_1);
    const int64_t reg_start = status_now_us();
    int32_t crop[6];
    const int result = ImageRegistration(ctx, in, crop);
    if (result != 0) {
        status_finish(ctx, in, result, HDR_OUTCOME_REJECTED, HDR_FALLBACK_NONE, call_start);
        return release_workers(ctx, result);
    }
    status->registered = 1;
    status->le_offset = ctx->le_offset;
    status->he_offset = ctx->he_offset;
    status->le_error_bits = (uint32_t)ctx->min_err_bits_le;
    status->he_error_bits = (uint32_t)ctx->min_err_bits_he;

    // An offset at the search limit means the frames did not match.
    if (abs_diff_wrapping(ctx->le_offset.x, 0) == 63 || abs_diff_wrapping(ctx->le_offset.y, 0) == 63 ||
        abs_diff_wrapping(ctx->he_offset.x, 0) == 63 || abs_diff_wrapping(ctx->he_offset.y, 0) == 63) {
        copy_reference(in);
        HDR_LOG("hdr motion over");
        status->registration_us = status_now_us() - reg_start;
        release_workers(ctx, 0);
        status_finish(ctx, in, 0, HDR_OUTCOME_FALLBACK, HDR_FALLBACK_REGISTRATION, call_start);
        return 0;
    }
    hdr_stage_end(&end_time_1, &total_time_1, t_reg);
    status->registration_us = status_now_us() - reg_start;

    int32_t xs = crop[0], ys = crop[1];
    for (int f = 1; f < 3; ++f) {
        if (crop[2 * f] > xs) xs = crop[2 * f];
        if (crop[2 * f + 1] > ys) ys = crop[2 * f + 1];
    }
    ctx->width = (W - xs) & ~7;
    ctx->height = (H - ys) & ~3;
    // Below 8 x 4 the pyramid sizes collapse to nothing: treat the frames as
    // unregistrable and hand back the reference frame.
    if (ctx->width < 8 || ctx->height < 4) {
        copy_reference(in);
        HDR_LOG("varo_hdr: working area %d x %d too small, reference frame used\n", ctx->width,
                ctx->height);
        release_workers(ctx, 0);
        status_finish(ctx, in, 0, HDR_OUTCOME_FALLBACK, HDR_FALLBACK_OVERLAP, call_start);
        return 0;
    }

    const uint32_t smaller = (uint32_t)ctx->width < (uint32_t)ctx->height ? (uint32_t)ctx->width
                                                                          : (uint32_t)ctx->height;
    ctx->levels = cvt_f64_s32(floor(log((double)(float)smaller) / 0.6931471805599453));
    status->width = ctx->width;
    status->height = ctx->height;
    status->levels = ctx->levels;
    HDR_LOG("offset HE (%d, %d), LE (%d, %d), AE (%d, %d), size (%d, %d), level %d\n", crop[0], crop[1],
            crop[2], crop[3], crop[4], crop[5], ctx->width, ctx->height, ctx->levels);

    set_level_pitches(ctx);

    for (int f = 0; f < 3; ++f) {
        const int32_t x = crop[2 * f], y = crop[2 * f + 1];
        ctx->aligned[f].luma = in->frame[f].luma + (ptrdiff_t)y * W + x;
        ctx->aligned[f].chroma = in->frame[f].chroma + (ptrdiff_t)(y >> 1) * W + (x & ~1);
    }
    ctx->out_luma = ctx->aligned[HE_IDX].luma;
    ctx->out_chroma = ctx->aligned[HE_IDX].chroma;
    in->out_x = crop[0];
    in->out_y = crop[1];
    in->out_width = ctx->width;
    in->out_height = ctx->height;

    // The ghost threshold scales with the input size, not the overlap.
    const uint32_t threshold = cvt_f32_u32((float)W * 0.004f * (float)H * 9.0f * 0.0625f);
    ctx->le_flag = (uint32_t)ctx->min_err_bits_le > threshold;
    ctx->he_flag = (uint32_t)ctx->min_err_bits_he > threshold;
    HDR_LOG("le flag %d, he flag %d\n", ctx->le_flag, ctx->he_flag);
    status->ghost_threshold = threshold;
    status->le_flag = ctx->le_flag;
    status->he_flag = ctx->he_flag;

    const int64_t t_motion = hdr_stage_start(&start_time_4);
    const int64_t motion_start = status_now_us();
    // The three threads share the motion stage by rows: mask fills and either
    // the plain base copies or the motion comparison.
    const bool ghost = ctx->le_flag || ctx->he_flag;
    HdrRowSplit *split = row_split(ctx);
    if (ghost) motion_rules(&split->rules, ctx, in);
    release_motion_stage(ctx, ghost ? SPLIT_MOTION_GHOST : SPLIT_MOTION_COPY);
    motion_share(ctx, 0);
    handoff_wait2(&split->sync_rows, &split->sync_rows.le_done, &split->sync_rows.he_done,
                  &split->sync_rows.cond_done);
    const int m = ghost ? motion_veto(&split->rules, split->counted[0] + split->counted[1] +
                                                         split->counted[2])
                        : 0;
    hdr_stage_end(&end_time_4, &total_time_4, t_motion);
    const int64_t fusion_start = status_now_us();
    status->motion_us = fusion_start - motion_start;
    const int64_t t_fusion = hdr_stage_start(&start_time_5);

    ctx->fusion_skip = m;
    handoff_release(&ctx->sync_motion, &ctx->sync_motion.go, &ctx->sync_motion.cond_go);
    if (m == 1) {
        copy_reference(in);
        HDR_LOG("hdr fusion skip");
        handoff_wait_workers_left(ctx);
    } else {
        ExposureFusion(ctx, in);
        in->out_x = 0;
        in->out_y = 0;
        in->out_width = ctx->width;
        in->out_height = ctx->height;
    }
    hdr_stage_end(&end_time_5, &total_time_5, t_fusion);
    status->fusion_us = status_now_us() - fusion_start;
    status_finish(ctx, in, result, m == 1 ? HDR_OUTCOME_FALLBACK
                                   : (ctx->le_flag || ctx->he_flag) ? HDR_OUTCOME_MERGED_GHOST
                                                                   : HDR_OUTCOME_MERGED,
                  m == 1 ? HDR_FALLBACK_GHOSTING : HDR_FALLBACK_NONE, call_start);
    HDR_LOG("[%s:%d] hdr time: ImageRegistration %lld ms, %lld ms, %lld ms, ImageSynthesize %lld ms, "
            "ExposureFusion %lld ms, WeightWellExposed %lld ms",
            __func__, __LINE__, (long long)hdr_counter_get(&total_time_1),
            (long long)hdr_counter_get(&total_time_2), (long long)hdr_counter_get(&total_time_3),
            (long long)hdr_counter_get(&total_time_4), (long long)hdr_counter_get(&total_time_5),
            (long long)hdr_counter_get(&total_time_6));
    return result;
}
