// Chroma Laplacian pyramid of one frame: the luma pyramid's filters applied
// per component to the signed (byte - 128) interleaved chroma plane.
#include "common/dsp.h"
#include "varo_hdr.h"

void ImageLaplacianPyramidChroma(HdrContext *ctx, int32_t src_pitch, int32_t chroma_level_arg,
                                 int32_t frame) {
    const ChromaDsp &d = hdr_dsp()->chroma;
    const int n = chroma_level_arg;
    const int pairs0 = ctx->width >> 1;
    const int rows0 = ctx->height >> 1;
    const int32_t *cs = ctx->chroma_stride;
    int8_t *gauss[2] = {(int8_t *)ctx->img_gaussian_pyramid[frame][0],
                        (int8_t *)ctx->img_gaussian_pyramid[frame][1]};
    int16_t *inter = ctx->inter_buf[frame];
    HdrLaplacianLevel *out = ctx->img_laplacian_pyramid[frame];

    d.copy_flip(gauss[0], cs[0], ctx->aligned[frame].chroma, src_pitch, 2 * pairs0, rows0);

    // The pyramid has n - 1 levels: bands 0 .. n-3 and the residual at n-2.
    const int top = n < 3 ? 0 : n - 2;
    for (int k = 0; k < top; ++k) {
        const int pairs = pairs0 >> k, rows = rows0 >> k;
        const int cpairs = pairs >> 1, crows = rows >> 1;
        int8_t *g = gauss[k & 1], *coarse = gauss[(k + 1) & 1];
        d.reduce_h(inter, g, cs[k], pairs, rows);
        d.reduce_v(coarse, cs[k + 1], inter, 2 * cpairs, crows, 0, crows);
        d.expand_h(inter, coarse, cs[k + 1], cpairs, crows, pairs);
        d.expand_band(out[k].IC, cs[k], g, cs[k], inter, 2 * pairs, rows, k == 0, 0, rows);
    }
    d.residual(out[top].IC, cs[top], gauss[top & 1], cs[top], 2 * (pairs0 >> top), rows0 >> top);
}
