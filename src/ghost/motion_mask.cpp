// Ghost detection: marks pixels where a side frame disagrees with the
// reference by more than the exposure ratio explains.
#include "common/arith.h"
#include "common/dsp.h"
#include "common/log.h"
#include "ghost/motion_mask.h"
#include "varo_hdr.h"

namespace {

enum { kLinearMax = 1623 };

inline uint8_t linear_to_pixel(double linear) {
    const int32_t v = cvt_f64_s32(linear);
    return inv_csf_tab[v < 0 ? 0 : v > kLinearMax ? kLinearMax : v];
}

// The comparisons of both side frames for this merge's exposure ratios.  The
// thresholds keep their types: 0.04 and 0.02 are doubles (the float ratio is
// widened), the ratio-derived ones floats.
void choose_rules(MotionRules *r, const HdrContext *ctx, float et_le, float et_he) {
    r->le_rule = MOTION_LE_OFF;
    r->he_rule = MOTION_HE_OFF;
    if (ctx->le_flag) {
        for (int i = 0; i < 256; ++i) r->le_predict[i] = linear_to_pixel(et_le * (float)csf_tab[i] + 5.0);
        if (et_le < 0.35) { // a very short LE exposure; NaN takes the milder case
            r->le_rule = MOTION_LE_SHORT;
            motion_cut_build(&r->le_cut, 0.04);
        } else if (et_he <= 3.0) {
            r->le_rule = MOTION_LE_MILD;
            motion_cut_build(&r->le_cut, (1 - et_le) / 50);
        } else if (et_he > 3.0) { // a NaN HE ratio takes neither branch
            r->le_rule = MOTION_LE_MILD_LONG;
            motion_cut_build(&r->le_cut, 0.04);
        }
    }
    if (ctx->he_flag) {
        for (int i = 0; i < 256; ++i) r->he_predict[i] = linear_to_pixel((float)csf_tab[i] / et_he + 5.0);
        if (et_he > 2.0) { // NaN takes the milder case
            r->he_rule = MOTION_HE_LONG;
            MotionCut dark_ae;
            motion_cut_build(&r->he_cut, 0.02);
            motion_cut_build(&dark_ae, 0.04);
            // Both thresholds are positive: both cuts are strict, so one table
            // holds each rule's bounds over its own HE values.
            for (int h = 221; h < 256; ++h) r->he_cut.bound[h] = dark_ae.bound[h];
        } else {
            r->he_rule = MOTION_HE_SHORT;
            motion_cut_build(&r->he_cut, (et_he - 1) / 120);
        }
    }
}

} // namespace

void motion_rules(MotionRules *rules, const HdrContext *ctx, const HdrInput *in) {
    float exposure[3];
    for (int f = 0; f < 3; ++f)
        exposure[f] = (float)in->exposure[f].exposure_units * in->exposure[f].exposure_scale;
    const float et_scale_ae2le = exposure[LE_IDX] / exposure[AE_IDX];
    const float et_scale_ae2he = exposure[HE_IDX] / exposure[AE_IDX];
    HDR_LOG_AS("MotionMask", "ET_scale_ae2le: %f, ET_scale_ae2he: %f", (double)et_scale_ae2le,
               (double)et_scale_ae2he);
    choose_rules(rules, ctx, et_scale_ae2le, et_scale_ae2he);
}

uint32_t motion_rows(HdrContext *ctx, const HdrInput *in, const MotionRules *rules, int32_t y0,
                     int32_t y1) {
    const int32_t w = ctx->width;
    const motion_row_fn motion_row = hdr_dsp()->ghost.motion_row;
    uint32_t counted = 0;
    for (int32_t y = y0; y < y1; ++y) {
        uint8_t *dst[3], *mask[3];
        const uint8_t *src[3];
        for (int f = 0; f < 3; ++f) {
            dst[f] = ctx->img_gaussian_pyramid[f][0] + (ptrdiff_t)y * ctx->row_stride[0];
            src[f] = ctx->aligned[f].luma + (ptrdiff_t)y * in->width;
            mask[f] = ctx->motion_mask[f] + (ptrdiff_t)y * w;
        }
        counted += motion_row(dst, src, mask, (unsigned)w, rules);
    }
    return counted;
}

// Every overlap byte of the three masks is written (1 where no rule fires),
// and the three level-0 copies are made in the same pass, row by row.
extern "C" VARO_HDR_API int MotionMask(HdrContext *ctx, HdrInput *in) {
    MotionRules rules;
    motion_rules(&rules, ctx, in);
    return motion_veto(&rules, motion_rows(ctx, in, &rules, 0, ctx->height));
}
