// Output normalisation: the fused signed luma is folded into 0..255 through
// soft-knee curves chosen from how far it overshoots on each side, and the
// chroma of every 2x2 block is scaled by the block's compression.
#include <math.h>
#include <string.h>

#include "common/arith.h"
#include "common/dsp.h"
#include "tone/normalize.h"
#include "varo_hdr.h"

namespace {

struct Spread {
    int32_t mean, spread;
};

Spread mean_and_spread(uint32_t count, int64_t sum, int64_t sumsq) {
    if (count == 0) return {0, 0};
    const int32_t mean = (int32_t)(sum / (int64_t)count);
    const int32_t mean_sq = (int32_t)(sumsq / (int64_t)count);
    // Wrapped partial sums can make this negative; sqrt then gives NaN and
    // the conversion 0.
    const int32_t var = (int32_t)((uint32_t)mean_sq - (uint32_t)mean * (uint32_t)mean);
    return {mean, cvt_f64_s32(sqrt((double)(float)var))};
}

struct LowCurve {
    const uint8_t *tab;
    int n; // inputs -n .. n-1 come from tab
};
LowCurve low_curve(int32_t L) {
    if (L < -47) return {tmap_tab_low4, 128};
    if (L < -31) return {tmap_tab_low3, 96};
    if (L < -15) return {tmap_tab_low2, 64};
    if (L < 0) return {tmap_tab_low1, 32};
    return {nullptr, 0};
}

struct HighCurve {
    const uint8_t *tab;
    int s, hi; // inputs s .. hi come from tab
};
HighCurve high_curve(int32_t U) {
    if (U > 302) return {tmap_tab_high4, 128, 383};
    if (U > 286) return {tmap_tab_high3, 160, 351};
    if (U > 270) return {tmap_tab_high2, 192, 319};
    if (U > 255) return {tmap_tab_high1, 224, 287};
    return {nullptr, 255, 255};
}

} // namespace

void tone_prepare(HdrContext *ctx, ToneJob *job, uint8_t *out_luma, uint8_t *out_chroma,
                  int32_t out_pitch, const ToneAcc *gathered) {
    const ToneDsp &d = hdr_dsp()->tone;
    const int width = ctx->width, height = ctx->height;
    const int16_t *luma = ctx->img_laplacian_pyramid[HE_IDX][0].IY;

    ToneAcc acc = {};
    if (!gathered) {
        d.stats(&acc, luma, ctx->row_stride[0], width & ~15, height < 0 ? 0 : height);
        gathered = &acc;
    }
    ToneStats st;
    tone_stats_total(&st, gathered);
    const Spread under = mean_and_spread(st.under_count, st.under_sum, st.under_sq);
    const Spread over = mean_and_spread(st.over_count, st.over_sum, st.over_sq);

    const float k = 2.2f;
    const int32_t L = st.under_count ? cvt_f32_s32((float)under.mean - k * (float)under.spread) : 0;
    const float top = over.mean == 0 ? 255.0f : (float)over.mean;
    const int32_t U = cvt_f32_s32(top + k * (float)over.spread);

    const LowCurve lc = low_curve(L);
    const HighCurve hc = high_curve(U);
    const int lo = -lc.n;
    uint8_t *lut = job->lut;
    if (lc.tab) memcpy(lut, lc.tab, 2 * lc.n);
    for (int x = lc.n; x < hc.s; ++x) lut[x - lo] = (uint8_t)x;
    if (hc.tab)
        memcpy(lut + (hc.s - lo), hc.tab, hc.hi - hc.s + 1);
    else
        lut[255 - lo] = 255; // nothing over range: 255 stays 255

    job->out_luma = out_luma;
    job->out_chroma = out_chroma;
    job->out_pitch = out_pitch;
    job->row_pairs = height < 1 ? 0 : (height + 1) >> 1;
    if (height < 1) return;
    tone_gain_table(job->gain, lut, lo, hc.hi, (int16_t)L, (int16_t)U);
    job->curve = {lut, job->gain, (int16_t)lo, (int16_t)hc.hi, (int16_t)L, (int16_t)U};
}

void tone_map_pairs(const HdrContext *ctx, const ToneJob *job, int32_t p0, int32_t p1) {
    if (p1 <= p0) return;
    const ptrdiff_t stride = ctx->row_stride[0], cstride = ctx->chroma_stride[0];
    const ptrdiff_t pitch = job->out_pitch;
    hdr_dsp()->tone.map(job->out_luma + 2 * p0 * pitch, job->out_chroma + p0 * pitch, pitch,
                        ctx->img_laplacian_pyramid[HE_IDX][0].IY + 2 * p0 * stride, stride,
                        ctx->img_laplacian_pyramid[HE_IDX][0].IC + p0 * cstride, cstride,
                        ctx->width & ~7, p1 - p0, &job->curve);
}

void ImageNormalize(HdrContext *ctx, uint8_t *out_luma, uint8_t *out_chroma, int32_t out_pitch) {
    ToneJob job;
    tone_prepare(ctx, &job, out_luma, out_chroma, out_pitch);
    tone_map_pairs(ctx, &job, 0, job.row_pairs);
}
