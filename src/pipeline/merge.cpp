// The merge, as a table of phases (kPhases, below the steps).
//
// Three threads take part: the calling thread (share 0) and two detached
// workers, thread 0 (FusionThreadFunc0, share 1) and thread 1
// (FusionThreadFunc1, share 2).  Each phase names what every thread does and
// the hand-off group that ends it.  In a phase the calling thread runs its
// `before` step, releases the group's go flag, runs its `work`, waits for the
// done flag of every worker that has work in the phase and runs its `after`
// step.  A worker that has work waits for go, runs it, sets its done flag
// (thread 0: le_done, thread 1: he_done) and runs its `after` step; a worker
// without work in a phase never looks at its group.  The gate is the one
// phase with a decision in it: there a worker leaves the merge when
// fusion_skip is set, acknowledging in its done flag.
//
// The steps call the stages, plain functions over the context and a range
// of rows, levels or a frame.  Progress lines, counters and the merge status
// are written here, never by a stage.  What a thread needs after a hand-off
// it keeps in its Run, not in the context: once a thread's last hand-off is
// done the caller may return, and the host may destroy the context at once.
#include "pipeline/merge.h"

#include <math.h>
#include <stdio.h>
#include <string.h>

#include "common/arith.h"
#include "common/geometry.h"
#include "common/log.h"
#include "fusion/reconstruct.h"
#include "fusion/weight_rows.h"
#include "ghost/motion_mask.h"
#include "pipeline/handoff.h"
#include "pipeline/merge_state.h"
#include "pipeline/timing.h"
#include "registration/bitmap.h"
#include "registration/crop_origins.h"
#include "registration/offset_search.h"
#include "tone/normalize.h"

namespace {

// One thread's view of the merge.
struct Run {
    HdrContext *ctx;
    HdrInput *in;
    int share;            // 0 calling thread, 1 thread 0, 2 thread 1
    const char *label;    // the function that its log lines name
    bool stop = false;    // the calling thread ends the merge after this phase
    HdrOffset he = {};    // thread 0: its offset, logged after the hand-off
    int64_t stage_ms = 0; // calling thread: the measured stage's start
    int64_t stage_us = 0;
    int veto = 0;
    ToneAcc stats = {};
};

using Step = void (*)(Run &);

// [*begin, *end) of share `part` of n items out of `parts`.
void split_range(size_t n, int part, int parts, size_t *begin, size_t *end) {
    *begin = n * (size_t)part / (size_t)parts;
    *end = n * (size_t)(part + 1) / (size_t)parts;
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

// ---- Registration: one bitmap pyramid per thread (reg_mode leaves a side
// frame out), then the two offset searches side by side.

void bitmaps_of(Run &r, int f) {
    bitmap_calc(r.in->frame[f].luma, (uint32_t)r.in->width, (uint32_t)r.in->height,
                &r.ctx->bitmap_pyramid[f][0], false);
}
void bitmaps_he(Run &r) {
    if (r.ctx->reg_mode != 1) bitmaps_of(r, HE_IDX);
}
void bitmaps_le(Run &r) {
    if (r.ctx->reg_mode != 2) bitmaps_of(r, LE_IDX);
}
void bitmaps_ae(Run &r) { bitmaps_of(r, AE_IDX); }
void bitmaps_logged_2(Run &r) { HDR_LOG_AS(r.label, "BitmapCalc 2 end\n"); }
void bitmaps_logged_0(Run &r) { HDR_LOG_AS(r.label, "BitmapCalc 0 end\n"); }
void bitmaps_logged_1(Run &r) { HDR_LOG_AS(r.label, "BitmapCalc 1 end\n"); }

void offset_le(Run &r) {
    HdrContext *ctx = r.ctx;
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
}
void offset_he(Run &r) {
    HdrContext *ctx = r.ctx;
    if (ctx->reg_mode == 1) {
        ctx->he_offset.x = 0;
        ctx->he_offset.y = 0;
        ctx->min_err_bits_he = 0;
    } else {
        bool reused; // published to the caller by the offset hand-off
        ctx->min_err_bits_he = (int32_t)offset_search(&ctx->bitmap_pyramid[HE_IDX][0],
                                                      &ctx->bitmap_pyramid[AE_IDX][0], &ctx->he_offset, &reused);
        merge_status(ctx)->he_offset_reused = reused;
    }
    r.he = ctx->he_offset;
}
void offset_le_logged(Run &r) {
    HDR_LOG_AS(r.label, "OffsetCalc 2 end, %d, %d\n", r.ctx->le_offset.x, r.ctx->le_offset.y);
}
void offset_he_logged(Run &r) { HDR_LOG_AS(r.label, "OffsetCalc 0 end, %d, %d\n", r.he.x, r.he.y); }

// ---- Motion: each thread fills a third of the mask bytes left and either
// compares a third of the overlap's rows or copies a third of the input's
// rows into the pyramid bases.

void motion_setup(Run &r) {
    r.stage_ms = hdr_stage_start(&start_time_4);
    r.stage_us = status_now_us();
    MergeState *m = merge_state(r.ctx);
    const bool ghost = r.ctx->le_flag || r.ctx->he_flag;
    if (ghost) motion_rules(&m->rules, r.ctx, r.in);
    m->motion_job = ghost ? MOTION_JOB_GHOST : MOTION_JOB_COPY;
}
void motion_share(Run &r) {
    HdrContext *ctx = r.ctx;
    MergeState *m = merge_state(ctx);
    const bool ghost = m->motion_job == MOTION_JOB_GHOST;
    // The masks start at 1 over the input size; the motion rows write every
    // byte of the overlap themselves, so then only the rest is filled.
    const size_t plane = (size_t)r.in->width * (size_t)r.in->height;
    const size_t filled = ghost ? (size_t)ctx->width * (size_t)ctx->height : 0;
    size_t b0, b1, r0, r1;
    split_range(plane - filled, r.share, 3, &b0, &b1);
    motion_mask_fill(ctx, filled + b0, filled + b1);
    if (ghost) {
        split_range((size_t)ctx->height, r.share, 3, &r0, &r1);
        m->counted[r.share] = motion_rows(ctx, r.in, &m->rules, (int32_t)r0, (int32_t)r1);
    } else {
        split_range((size_t)r.in->height, r.share, 3, &r0, &r1);
        static const int order[3] = {AE_IDX, LE_IDX, HE_IDX};
        for (int f : order) copy_base_rows(ctx, f, r0, r1, r.share == 2);
    }
}
// The workers pass the motion hand-off without work when the merge stops before it.
bool motion_passed(const HdrContext *ctx) { return merge_state(ctx)->motion_job == MOTION_JOB_NONE; }
void motion_decided(Run &r) {
    const MergeState *m = merge_state(r.ctx);
    r.veto = m->motion_job == MOTION_JOB_GHOST
                 ? motion_veto(&m->rules, m->counted[0] + m->counted[1] + m->counted[2])
                 : 0;
    hdr_stage_end(&end_time_4, &total_time_4, r.stage_ms);
    const int64_t now = status_now_us();
    merge_status(r.ctx)->motion_us = now - r.stage_us;
    r.stage_us = now;
}

// ---- Gate: the veto decides whether the workers go on into the fusion.

void gate_set(Run &r) {
    r.stage_ms = hdr_stage_start(&start_time_5);
    r.ctx->fusion_skip = r.veto;
}
// Ghosting too strong: the reference frame is the output, once both workers
// have acknowledged the gate.
void gate_fallback(Run &r) {
    if (r.veto != 1) return;
    copy_reference(r.in);
    HDR_LOG_AS(r.label, "hdr fusion skip");
    HdrHandoff *g = &r.ctx->sync_motion;
    handoff_wait2(g, &g->le_done, &g->he_done, &g->cond_done);
    r.stop = true;
}

// ---- Weights: each thread weighs and normalises a third of the rows of all
// three frames.  Stage 6 measures the calling thread's third and the wait.

void weights_started(Run &r) {
    r.stage_ms = hdr_stage_start(&start_time_6);
    r.stage_us = status_now_us();
}
void weights_share(Run &r) {
    size_t r0, r1;
    split_range((size_t)r.ctx->height, r.share, 3, &r0, &r1);
    weight_rows(r.ctx, (int32_t)r0, (int32_t)r1);
}
void weights_done(Run &r) {
    HDR_LOG_AS(r.label, "varo_hdr: WeightWellExposed AE_IDX end\n");
    hdr_stage_end(&end_time_6, &total_time_6, r.stage_ms);
    merge_status(r.ctx)->weights_us = status_now_us() - r.stage_us;
    HDR_LOG_AS(r.label, "normalize weighting done!\n");
}
void weights_le_logged(Run &r) { HDR_LOG_AS(r.label, "varo_hdr: WeightWellExposed LE_IDX end\n"); }
void weights_he_logged(Run &r) { HDR_LOG_AS(r.label, "varo_hdr: WeightWellExposed HE_IDX end\n"); }

// ---- Pyramids: each thread builds one frame's weight, luma and chroma
// pyramids (the blend is done level by level in the collapse).

#define FRAME_PYRAMIDS(name, F)                                                                    \
    void name(Run &r) {                                                                            \
        HdrContext *ctx = r.ctx;                                                                   \
        HDR_LOG_AS(r.label, "varo_hdr: WeightGaussPyramid " #F " start\n");                      \
        WeightGaussPyramid(&ctx->w_gaussian_pyramid[F][0], ctx->inter_buf[F], ctx->width,         \
                           ctx->height, ctx->row_stride, ctx->levels);                             \
        HDR_LOG_AS(r.label, "varo_hdr: WeightGaussPyramid " #F " end\n");                        \
        HDR_LOG_AS(r.label, "varo_hdr: ImageLaplacianPyramid " #F " start\n");                   \
        ImageLaplacianPyramid(ctx, ctx->levels, F);                                                \
        HDR_LOG_AS(r.label, "varo_hdr: ImageLaplacianPyramid " #F " end\n");                     \
        HDR_LOG_AS(r.label, "varo_hdr: ImageLaplacianPyramidChroma " #F " start\n");             \
        ImageLaplacianPyramidChroma(ctx, r.in->width, ctx->levels >> 1, F);                        \
        HDR_LOG_AS(r.label, "varo_hdr: ImageLaplacianPyramidChroma " #F " end\n");               \
    }
FRAME_PYRAMIDS(pyramids_ae, AE_IDX)
FRAME_PYRAMIDS(pyramids_le, LE_IDX)
FRAME_PYRAMIDS(pyramids_of_he, HE_IDX)
#undef FRAME_PYRAMIDS
void pyramids_ae_logged(Run &r) { HDR_LOG_AS(r.label, "varo_hdr: AE_IDX end\n"); }
void pyramids_le_logged(Run &r) { HDR_LOG_AS(r.label, "varo_hdr: LE_IDX end\n"); }
// Thread 1 logs before its last hand-off rather than after it, so that
// nothing but its exit runs once the caller may have returned.
void pyramids_he(Run &r) {
    pyramids_of_he(r);
    HDR_LOG_AS(r.label, "varo_hdr: HE_IDX end\n");
}

// ---- Collapse: the luma here while thread 0 collapses the chroma (disjoint
// planes).  The tone statistics are gathered strip by strip as the luma
// collapse finishes the rows, not in a pass of their own once the plane has
// left the cache; the curve reads the fused luma only, so it need not wait
// for the chroma.

void collapse_luma(Run &r) {
    HdrContext *ctx = r.ctx;
    r.stats = ToneAcc{};
    reconstruct_luma(ctx, ctx->levels, &r.stats);
    HDR_LOG_AS(r.label, "varo_hdr: ImageReconstruct end\n");
    tone_prepare(ctx, &merge_state(ctx)->tone, r.in->frame[HE_IDX].luma, r.in->frame[HE_IDX].chroma,
                 r.in->width, &r.stats);
}
void collapse_chroma(Run &r) {
    ImageReconstructChroma(r.ctx, r.ctx->levels >> 1);
    HDR_LOG_AS(r.label, "ImageReconstructChroma Chroma end\n");
}

// ---- Tone: the row pairs of the mapping, the upper half here and the lower
// half on thread 0, whose done flag is its last touch of the context.

void tone_announced(Run &) { puts("ImageNormalize LUMA end"); }
void tone_share(Run &r) {
    const ToneJob *job = &merge_state(r.ctx)->tone;
    size_t p0, p1;
    split_range((size_t)job->row_pairs, r.share, 2, &p0, &p1);
    tone_map_pairs(r.ctx, job, (int32_t)p0, (int32_t)p1);
}
void tone_logged(Run &r) { HDR_LOG_AS(r.label, "varo_hdr: ImageNormalize end\n"); }

// ---- The table.

HdrHandoff *bitmap_group(HdrContext *c) { return &c->sync_bitmap; }
HdrHandoff *offset_group(HdrContext *c) { return &c->sync_offset; }
HdrHandoff *rows_group(HdrContext *c) { return &merge_state(c)->sync_rows; }
HdrHandoff *motion_group(HdrContext *c) { return &c->sync_motion; }
HdrHandoff *weight_group(HdrContext *c) { return &c->sync_weight; }
HdrHandoff *pyramid_group(HdrContext *c) { return &c->sync_pyramid; }
HdrHandoff *chroma_group(HdrContext *c) { return &c->sync_chroma; }
HdrHandoff *tone_group(HdrContext *c) { return &merge_state(c)->sync_tone; }

// What one thread does in a phase; `before` is the calling thread's only.
struct Share {
    Step before, work, after;
};

struct Phase {
    const char *name;
    HdrHandoff *(*ends_with)(HdrContext *);
    Share caller, thread0, thread1;
    // Read by a worker once released: true lets it through without work or flag.
    bool (*workers_pass)(const HdrContext *) = nullptr;
    bool gate = false;
};

enum PhaseId { BITMAPS, OFFSETS, MOTION, GATE, WEIGHTS, PYRAMIDS, COLLAPSE, TONE, PHASE_COUNT };

// Shares as {before, work, after}.  ImageRegistration runs the calling
// thread's bitmaps and offsets, hdrThreeFrameCore its motion and gate,
// ExposureFusion the rest; the workers run theirs from the top.
const Phase kPhases[PHASE_COUNT] = {
    // Registration bitmaps: HE here, LE on thread 0, AE on thread 1.
    {"bitmaps", bitmap_group,
     /* caller   */ {nullptr, bitmaps_he, bitmaps_logged_2},
     /* thread 0 */ {nullptr, bitmaps_le, bitmaps_logged_0},
     /* thread 1 */ {nullptr, bitmaps_ae, bitmaps_logged_1}},
    // Offset searches: LE against AE here, HE against AE on thread 0.
    {"offsets", offset_group,
     /* caller   */ {nullptr, offset_le, offset_le_logged},
     /* thread 0 */ {nullptr, offset_he, offset_he_logged},
     /* thread 1 */ {}},
    // Motion, a third of the rows each; the calling thread decides the veto.
    {"motion", rows_group,
     /* caller   */ {motion_setup, motion_share, motion_decided},
     /* thread 0 */ {nullptr, motion_share, nullptr},
     /* thread 1 */ {nullptr, motion_share, nullptr}, motion_passed},
    // Gate: fusion_skip lets the workers go on or sends them away.
    {"gate", motion_group,
     /* caller   */ {gate_set, nullptr, gate_fallback},
     /* thread 0 */ {},
     /* thread 1 */ {}, nullptr, true},
    // Level-0 weights of all three frames, a third of the rows each.
    {"weights", weight_group,
     /* caller   */ {weights_started, weights_share, weights_done},
     /* thread 0 */ {nullptr, weights_share, weights_le_logged},
     /* thread 1 */ {nullptr, weights_share, weights_he_logged}},
    // Pyramids: AE here, LE on thread 0, HE on thread 1 (its last hand-off).
    {"pyramids", pyramid_group,
     /* caller   */ {nullptr, pyramids_ae, pyramids_ae_logged},
     /* thread 0 */ {nullptr, pyramids_le, pyramids_le_logged},
     /* thread 1 */ {nullptr, pyramids_he, nullptr}},
    // Blend and collapse: luma (and the tone curve) here, chroma on thread 0.
    {"collapse", chroma_group,
     /* caller   */ {nullptr, collapse_luma, nullptr},
     /* thread 0 */ {nullptr, collapse_chroma, nullptr},
     /* thread 1 */ {}},
    // Tone map: upper half here, lower half on thread 0 (its last hand-off).
    {"tone", tone_group,
     /* caller   */ {tone_announced, tone_share, tone_logged},
     /* thread 0 */ {nullptr, tone_share, nullptr},
     /* thread 1 */ {}},
};

// The calling thread's part of phases first .. last; false when it ended the merge.
bool run_caller(Run &r, int first, int last) {
    for (int i = first; i <= last && !r.stop; ++i) {
        const Phase &p = kPhases[i];
        if (p.caller.before) p.caller.before(r);
        HdrHandoff *g = p.ends_with(r.ctx);
        handoff_release(g, &g->go, &g->cond_go);
        if (p.caller.work) p.caller.work(r);
        // At the gate the workers report only when they leave (gate_fallback).
        if (p.thread0.work && p.thread1.work) {
            handoff_wait2(g, &g->le_done, &g->he_done, &g->cond_done);
        } else if (p.thread0.work || p.thread1.work) {
            handoff_wait(g, p.thread0.work ? &g->le_done : &g->he_done, &g->cond_done);
        }
        if (p.caller.after) p.caller.after(r);
    }
    return !r.stop;
}

void run_worker(Run &r) {
    for (const Phase &p : kPhases) {
        const Share &s = r.share == 1 ? p.thread0 : p.thread1;
        if (!s.work && !p.gate) continue;
        HdrHandoff *g = p.ends_with(r.ctx);
        int32_t *done = r.share == 1 ? &g->le_done : &g->he_done;
        if (p.gate) {
            if (handoff_wait_gate(g, &r.ctx->fusion_skip, done)) return;
            continue;
        }
        handoff_wait(g, &g->go, &g->cond_go);
        if (p.workers_pass && p.workers_pass(r.ctx)) continue;
        s.work(r);
        handoff_signal(g, done, &g->cond_done);
        if (s.after) s.after(r);
    }
}

// Lets the started workers through every hand-off from phase `from` to the
// gate with nothing to do there, and returns once each has left the merge:
// after that neither touches the context.
void release_workers(HdrContext *ctx, int from, bool started0, bool started1) {
    merge_state(ctx)->motion_job = MOTION_JOB_NONE;
    ctx->fusion_skip = 1;
    for (int i = from; i <= GATE; ++i) {
        HdrHandoff *g = kPhases[i].ends_with(ctx);
        handoff_release(g, &g->go, &g->cond_go);
    }
    HdrHandoff *g = kPhases[GATE].ends_with(ctx);
    if (started0) handoff_wait(g, &g->le_done, &g->cond_done);
    if (started1) handoff_wait(g, &g->he_done, &g->cond_done);
}

int32_t exposure_product(const HdrExposure &e) {
    return cvt_f32_s32(e.exposure_scale * (float)e.exposure_units);
}

// 32-bit wrapping difference, absolute value that keeps INT32_MIN.
int32_t abs_diff_wrapping(int32_t a, int32_t b) {
    uint32_t d = (uint32_t)a - (uint32_t)b;
    return (int32_t)((int32_t)d < 0 ? 0u - d : d);
}

} // namespace

// The calling thread's registration: bitmaps and offsets, then the crop
// origins that put matching content at equal coordinates.
extern "C" VARO_HDR_API int ImageRegistration(HdrContext *ctx, HdrInput *in, int32_t crop[6]) {
    Run r = {ctx, in, 0, "ImageRegistration"};
    run_caller(r, BITMAPS, OFFSETS);
    crop_origins(ctx, crop);
    return 0;
}

// The calling thread's fusion, once the workers are through the gate.
extern "C" VARO_HDR_API int ExposureFusion(HdrContext *ctx, HdrInput *in) {
    Run r = {ctx, in, 0, "ExposureFusion"};
    run_caller(r, WEIGHTS, TONE);
    return 0;
}

extern "C" VARO_HDR_API void *FusionThreadFunc0(void *arg) {
    HdrContext *ctx = (HdrContext *)arg;
    Run r = {ctx, ctx->input, 1, "FusionThreadFunc0"};
    run_worker(r);
    return nullptr;
}

extern "C" VARO_HDR_API void *FusionThreadFunc1(void *arg) {
    HdrContext *ctx = (HdrContext *)arg;
    Run r = {ctx, ctx->input, 2, "FusionThreadFunc1"};
    run_worker(r);
    return nullptr;
}

int merge_three_frames(HdrContext *ctx, HdrInput *in, int64_t call_start) {
    static const char kLabel[] = "hdrThreeFrameCore";
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
    HDR_LOG_AS(kLabel, "[%s:%d] hdr_mode: %d, %d, %d, %d, %d, %d, %d, size %d %d", kLabel, __LINE__, pAE,
               pLE, pHE, dAL, dAH, dLH, 0, W, H);
    // Kept as the camera stack expects it, although with 32-bit differences
    // the three can never all be negative at once.
    if ((dAH & dLH & dAL) < 0) {
        HDR_LOG_AS(kLabel, "[%s:%d] hdr_mode: no HDR needed ", kLabel, __LINE__);
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
        // The started worker is walked through its hand-offs to the gate,
        // without its LE bitmaps, and nothing is written.
        ctx->reg_mode = 2;
        release_workers(ctx, BITMAPS, started0, started1);
        HDR_LOG_AS(kLabel, "varo_hdr: worker thread could not be started\n");
        status_finish(ctx, in, VARO_HDR_ERR_THREAD, HDR_OUTCOME_REJECTED, HDR_FALLBACK_NONE, call_start);
        return VARO_HDR_ERR_THREAD;
    }

    HDR_LOG_AS(kLabel, "[%s:%d] begin ... ", kLabel, __LINE__);

    // Phases bitmaps and offsets.
    const int64_t t_reg = hdr_stage_start(&start_time_1);
    const int64_t reg_start = status_now_us();
    int32_t crop[6];
    const int result = ImageRegistration(ctx, in, crop);
    if (result != 0) {
        status_finish(ctx, in, result, HDR_OUTCOME_REJECTED, HDR_FALLBACK_NONE, call_start);
        release_workers(ctx, MOTION, true, true);
        return result;
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
        HDR_LOG_AS(kLabel, "hdr motion over");
        status->registration_us = status_now_us() - reg_start;
        release_workers(ctx, MOTION, true, true);
        status_finish(ctx, in, 0, HDR_OUTCOME_FALLBACK, HDR_FALLBACK_REGISTRATION, call_start);
        return 0;
    }
    hdr_stage_end(&end_time_1, &total_time_1, t_reg);
    status->registration_us = status_now_us() - reg_start;

    // The working area: the overlap, width a multiple of 8, height of 4.
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
        HDR_LOG_AS(kLabel, "varo_hdr: working area %d x %d too small, reference frame used\n", ctx->width,
                   ctx->height);
        release_workers(ctx, MOTION, true, true);
        status_finish(ctx, in, 0, HDR_OUTCOME_FALLBACK, HDR_FALLBACK_OVERLAP, call_start);
        return 0;
    }

    const uint32_t smaller = (uint32_t)ctx->width < (uint32_t)ctx->height ? (uint32_t)ctx->width
                                                                          : (uint32_t)ctx->height;
    ctx->levels = cvt_f64_s32(floor(log((double)(float)smaller) / 0.6931471805599453));
    status->width = ctx->width;
    status->height = ctx->height;
    status->levels = ctx->levels;
    HDR_LOG_AS(kLabel, "offset HE (%d, %d), LE (%d, %d), AE (%d, %d), size (%d, %d), level %d\n", crop[0],
               crop[1], crop[2], crop[3], crop[4], crop[5], ctx->width, ctx->height, ctx->levels);

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
    HDR_LOG_AS(kLabel, "le flag %d, he flag %d\n", ctx->le_flag, ctx->he_flag);
    status->ghost_threshold = threshold;
    status->le_flag = ctx->le_flag;
    status->he_flag = ctx->he_flag;

    // Phases motion and gate here; weights to tone in ExposureFusion.
    Run r = {ctx, in, 0, kLabel};
    if (run_caller(r, MOTION, GATE)) {
        ExposureFusion(ctx, in);
        in->out_x = 0;
        in->out_y = 0;
        in->out_width = ctx->width;
        in->out_height = ctx->height;
    }
    const bool fused = r.veto != 1;
    hdr_stage_end(&end_time_5, &total_time_5, r.stage_ms);
    status->fusion_us = status_now_us() - r.stage_us;
    status_finish(ctx, in, result, !fused ? HDR_OUTCOME_FALLBACK
                                   : (ctx->le_flag || ctx->he_flag) ? HDR_OUTCOME_MERGED_GHOST
                                                                   : HDR_OUTCOME_MERGED,
                  fused ? HDR_FALLBACK_NONE : HDR_FALLBACK_GHOSTING, call_start);
    HDR_LOG_AS(kLabel,
               "[%s:%d] hdr time: ImageRegistration %lld ms, %lld ms, %lld ms, ImageSynthesize %lld ms, "
               "ExposureFusion %lld ms, WeightWellExposed %lld ms",
               kLabel, __LINE__, (long long)hdr_counter_get(&total_time_1),
               (long long)hdr_counter_get(&total_time_2), (long long)hdr_counter_get(&total_time_3),
               (long long)hdr_counter_get(&total_time_4), (long long)hdr_counter_get(&total_time_5),
               (long long)hdr_counter_get(&total_time_6));
    return result;
}
