// Chroma reconstruction: the three chroma pyramids blended with the weight
// pyramids (chroma level k uses weight level k + 1, the same size in pairs as
// in pixels), then collapsed into frame 0's level 0.
#include "common/arith.h"
#include "common/dsp.h"
#include "fusion/pyramid_strips.h"
#include "varo_hdr.h"

// Blend of rows y0 .. y1-1 of chroma level k into frame 0's pyramid.
static void blend_rows(const ChromaDsp &d, HdrContext *ctx, int k, int y0, int y1) {
    HdrLaplacianLevel(*pyr)[VARO_HDR_MAX_LEVELS] = ctx->img_laplacian_pyramid;
    uint8_t *const(*w)[VARO_HDR_MAX_LEVELS] = ctx->w_gaussian_pyramid;
    const ptrdiff_t o = y0 * (ptrdiff_t)ctx->chroma_stride[k], wo = y0 * (ptrdiff_t)ctx->row_stride[k + 1];
    d.blend(pyr[HE_IDX][k].IC + o, pyr[LE_IDX][k].IC + o, pyr[AE_IDX][k].IC + o, ctx->chroma_stride[k],
            w[HE_IDX][k + 1] + wo, w[LE_IDX][k + 1] + wo, w[AE_IDX][k + 1] + wo, ctx->row_stride[k + 1],
            (ctx->width >> 1) >> k, y1 - y0);
}

void ImageReconstructChroma(HdrContext *ctx, int32_t chroma_level_arg) {
    const int n = chroma_level_arg;
    if (n < 2) return;
    const ChromaDsp &d = hdr_dsp()->chroma;
    const int pairs0 = ctx->width >> 1;
    const int rows0 = ctx->height >> 1;
    const int32_t *cs = ctx->chroma_stride;
    HdrLaplacianLevel(*pyr)[VARO_HDR_MAX_LEVELS] = ctx->img_laplacian_pyramid;

    blend_rows(d, ctx, n - 2, 0, rows0 >> (n - 2));
    // Coarse to fine: each strip of a level is blended just before the
    // expanded coarser level is added to it, while its rows are in cache.
    // inter_buf[1]: the luma collapse runs at the same time on inter_buf[0].
    int16_t *scratch = ctx->inter_buf[1];
    for (int l = n - 3; l >= 0; --l) {
        const int pairs = pairs0 >> l, rows = rows0 >> l;
        int16_t *q = pyr[HE_IDX][l + 1].IC, *out = pyr[HE_IDX][l].IC;
        const ptrdiff_t pitch = cs[l], pitch_n = cs[l + 1];
        expand_strips(
            scratch, 2 * pairs, rows,
            [&](int16_t *t, int row, int count) { d.collapse_h(t, q + row * pitch_n, pitch_n, pairs >> 1, count, pairs); },
            [&](const int16_t *t, int y0, int y1) {
                blend_rows(d, ctx, l, y0, y1);
                d.collapse_v(out, pitch, t, 2 * pairs, rows, y0, y1);
            });
    }
}
