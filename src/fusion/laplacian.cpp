// Luma Laplacian pyramid of one frame: binomial [1 4 6 4 1] reduce, polyphase
// expand, band = level - expanded next level, coarsest level as residual.
#include <string.h>

#include "common/arith.h"
#include "common/dsp.h"
#include "fusion/pyramid_rows.h"
#include "fusion/pyramid_strips.h"
#include "varo_hdr.h"

decl_image_band_v_fn(image_band_v_c) {
    expand_rows(hs, (int)ceil8((unsigned)w), h, y0, y1, [&](int y, int x, int e) {
        band[y * band_stride + x] = (int16_t)(g[y * g_stride + x] - ((e + 32) >> 6));
    });
}

decl_residual_copy_fn(residual_copy_c) {
    for (int y = 0; y < h; ++y, src += stride, dst += stride)
        for (int x = 0; x < w; ++x) dst[x] = src[x];
}

// One level: reduce g into gn and the band of g against the expanded gn,
// strip by strip.
static void laplacian_level(const FusionDsp &dsp, int16_t *band, uint8_t *g, ptrdiff_t pitch, uint8_t *gn,
                            ptrdiff_t pitch_n, int w, int h, uint16_t *scratch) {
    const int wn = w >> 1, hn = h >> 1, ow = (int)ceil8((unsigned)wn);
    laplacian_strips(
        scratch, ow, ceil8((unsigned)w), h, hn, [](int) {},
        [&](uint16_t *t, int row, int n) { dsp.image_reduce_h(t, g + row * pitch, pitch, w, n); },
        [&](const uint16_t *t, int y0, int y1) { dsp.image_reduce_v(gn, pitch_n, t, ow, hn, y0, y1); },
        [&](uint16_t *t, int row, int n) { dsp.image_expand_h(t, gn + row * pitch_n, pitch_n, wn, n, w); },
        [&](const uint16_t *t, int y0, int y1) { dsp.image_band_v(band, pitch, g, pitch, t, w, h, y0, y1); });
}

extern "C" VARO_HDR_API void ImageLaplacianPyramid(HdrContext *ctx, int32_t level_count,
                                                   int32_t frame) {
    const FusionDsp &dsp = hdr_dsp()->fusion;
    uint8_t *const *gauss = ctx->img_gaussian_pyramid[frame];
    HdrLaplacianLevel *lap = ctx->img_laplacian_pyramid[frame];
    uint16_t *scratch = (uint16_t *)ctx->inter_buf[frame];
    int w = ctx->width, h = ctx->height;
    for (int l = 0; l < level_count - 1; ++l) {
        uint8_t *g = gauss[l & 1], *gn = gauss[(l + 1) & 1];
        const ptrdiff_t pitch = ctx->row_stride[l];
        laplacian_level(dsp, lap[l].IY, g, pitch, gn, ctx->row_stride[l + 1], w, h, scratch);
        if (l == 0) {
            // The full-resolution top and bottom edges carry no detail.
            const size_t row_bytes = ceil8((unsigned)w) * sizeof(int16_t);
            const int bottom = (h & 1) ? 3 : 2;
            for (int y = 0; y < 2; ++y) memset(lap[0].IY + y * pitch, 0, row_bytes);
            for (int y = h - bottom; y < h; ++y) memset(lap[0].IY + y * pitch, 0, row_bytes);
        }
        w >>= 1;
        h >>= 1;
    }
    const int top = level_count > 1 ? level_count - 1 : 0;
    dsp.residual_copy(lap[top].IY, gauss[top & 1], ctx->row_stride[top], w, h);
}
