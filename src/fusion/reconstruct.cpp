// Luma reconstruction: blend the three frames' Laplacian pyramids with their
// weight pyramids into frame 0's, then collapse it from the coarsest level.
#include "common/arith.h"
#include "common/dsp.h"
#include "fusion/pyramid_rows.h"
#include "fusion/pyramid_strips.h"
#include "fusion/reconstruct.h"
#include "varo_hdr.h"

decl_band_blend_fn(band_blend_c) {
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w8; ++x) {
            int32_t a = w0[x] * b0[x] + w1[x] * b1[x] + w2[x] * b2[x];
            b0[x] = (int16_t)(uint16_t)((a + 128) >> 8);
        }
        b0 += bstride;
        b1 += bstride;
        b2 += bstride;
        w0 += wstride;
        w1 += wstride;
        w2 += wstride;
    }
}

// 16-bit wrap-around: the collapsed levels stay within -512 .. 511, so
// nothing is lost in the sums the expand forms.
static inline int16_t wrap16(int v) { return (int16_t)(uint16_t)v; }

decl_collapse_add_v_fn(collapse_add_v_c) {
    expand_rows(hs, (int)ceil8((unsigned)w), h, y0, y1, [&](int y, int x, int e) {
        int16_t *d = &l[y * l_stride + x];
        *d = wrap16(*d + ((wrap16(e) + 32) >> 6));
    });
}

// Blend of rows y0 .. y1-1 of level l into frame 0's pyramid.
static void blend_rows(const FusionDsp &dsp, HdrContext *ctx, int l, int y0, int y1) {
    HdrLaplacianLevel(*lap)[VARO_HDR_MAX_LEVELS] = ctx->img_laplacian_pyramid;
    uint8_t *const(*wp)[VARO_HDR_MAX_LEVELS] = ctx->w_gaussian_pyramid;
    const ptrdiff_t pitch = ctx->row_stride[l], o = y0 * pitch;
    dsp.band_blend(lap[HE_IDX][l].IY + o, lap[LE_IDX][l].IY + o, lap[AE_IDX][l].IY + o, pitch, wp[HE_IDX][l] + o,
                   wp[LE_IDX][l] + o, wp[AE_IDX][l] + o, pitch, (int)ceil8((unsigned)(ctx->width >> l)), y1 - y0);
}

void reconstruct_luma(HdrContext *ctx, int32_t level_count, ToneAcc *stats) {
    if (level_count <= 0) return;
    const FusionDsp &dsp = hdr_dsp()->fusion;
    const tone_stats_fn add_stats = hdr_dsp()->tone.stats;
    HdrLaplacianLevel(*lap)[VARO_HDR_MAX_LEVELS] = ctx->img_laplacian_pyramid;
    const int top = level_count - 1;
    blend_rows(dsp, ctx, top, 0, ctx->height >> top);
    if (stats && top == 0)
        add_stats(stats, lap[HE_IDX][0].IY, ctx->row_stride[0], ctx->width & ~15, ctx->height);
    // Coarse to fine: each strip of a level is blended just before the
    // expanded coarser level is added to it, while its rows are in cache.
    int16_t *scratch = ctx->inter_buf[HE_IDX];
    for (int l = level_count - 2; l >= 0; --l) {
        const int w = ctx->width >> l, h = ctx->height >> l;
        int16_t *q = lap[HE_IDX][l + 1].IY, *out = lap[HE_IDX][l].IY;
        const ptrdiff_t pitch = ctx->row_stride[l], pitch_n = ctx->row_stride[l + 1];
        ToneAcc *const level_stats = l == 0 ? stats : nullptr;
        expand_strips(
            scratch, w, h,
            [&](int16_t *t, int row, int rows) { dsp.collapse_expand_h(t, q + row * pitch_n, pitch_n, w >> 1, rows, w); },
            [&](const int16_t *t, int y0, int y1) {
                blend_rows(dsp, ctx, l, y0, y1);
                dsp.collapse_add_v(out, pitch, t, w, h, y0, y1);
                // Rows y0 .. y1-1 are final now.
                if (level_stats) add_stats(level_stats, out + y0 * pitch, pitch, w & ~15, y1 - y0);
            });
    }
}

extern "C" VARO_HDR_API void ImageReconstruct(HdrContext *ctx, int32_t level_count) {
    reconstruct_luma(ctx, level_count, nullptr);
}
