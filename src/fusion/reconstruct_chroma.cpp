// Chroma reconstruction: the three chroma pyramids blended with the weight
// pyramids (chroma level k uses weight level k + 1, the same size in pairs as
// in pixels), then collapsed into frame 0's level 0.
#include "common/dsp.h"
#include "varo_hdr.h"

void ImageReconstructChroma(HdrContext *ctx, int32_t chroma_level_arg) {
    const int n = chroma_level_arg;
    if (n < 2) return;
    const ChromaDsp &d = hdr_dsp()->chroma;
    const int pairs0 = ctx->width >> 1;
    const int rows0 = ctx->height >> 1;
    const int32_t *cs = ctx->chroma_stride;
    HdrLaplacianLevel(*pyr)[VARO_HDR_MAX_LEVELS] = ctx->img_laplacian_pyramid;
    uint8_t *(*w)[VARO_HDR_MAX_LEVELS] = ctx->w_gaussian_pyramid;

    for (int k = 0; k <= n - 2; ++k)
        d.blend(pyr[0][k].IC, pyr[1][k].IC, pyr[2][k].IC, cs[k], w[0][k + 1], w[1][k + 1],
                w[2][k + 1], ctx->row_stride[k + 1], pairs0 >> k, rows0 >> k);

    // inter_buf[1]: the luma collapse runs at the same time on inter_buf[0].
    int16_t *inter = ctx->inter_buf[1];
    for (int l = n - 3; l >= 0; --l) {
        d.collapse_h(inter, pyr[0][l + 1].IC, cs[l + 1], pairs0 >> (l + 1), rows0 >> (l + 1),
                     pairs0 >> l);
        d.collapse_v(pyr[0][l].IC, cs[l], inter, 2 * (pairs0 >> l), rows0 >> l, 0, rows0 >> l);
    }
}
