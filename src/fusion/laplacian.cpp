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
// strip by strip.  The reduce runs a few rows ahead of the band, so g's rows
// are still in cache when the band reads them, and gn's when the expand
// does.  Every pass still sees its rows in the state a whole-level pass would
// leave them: g is padded (by the reduce) beyond the band's rows, and gn is
// made two rows beyond the expand's, whose loads reach into the next rows.
static void laplacian_level(const FusionDsp &dsp, int16_t *band, uint8_t *g, ptrdiff_t pitch, uint8_t *gn,
                            ptrdiff_t pitch_n, int w, int h, uint16_t *scratch) {
    const int wn = w >> 1, hn = h >> 1, ow = (int)ceil8((unsigned)wn);
    const ptrdiff_t ew = ceil8((unsigned)w);
    const int step = 2 * strip_rows((size_t)ew * sizeof(uint16_t));
    // The reduce holds at most step + 10 rows; the expand's rows follow them.
    const size_t reduce_rows = (size_t)(h < step + 10 ? h : step + 10);
    StripWindow<uint16_t> rwin{scratch, ow}, ewin{scratch + ((reduce_rows * ow + 31) & ~(size_t)31), ew};
    int done = 0; // rows of gn made
    for (int y0 = 0; y0 < h; y0 += step) {
        const int y1 = y0 + step < h ? y0 + step : h, rows = expand_v_end(y1, h);
        const int target = rows + 2 < hn ? rows + 2 : hn;
        if (target > done) {
            const int to = target < hn ? reduce_v_end(target, hn) : h; // the odd last row too, as a whole pass
            uint16_t *next = rwin.keep_from(reduce_v_first(done));
            dsp.image_reduce_h(next, g + rwin.end * pitch, pitch, w, to - rwin.end);
            rwin.end = to;
            dsp.image_reduce_v(gn, pitch_n, rwin.buf, ow, hn, done, target);
            done = target;
        }
        uint16_t *next = ewin.keep_from(expand_v_first(y0));
        dsp.image_expand_h(next, gn + ewin.end * pitch_n, pitch_n, wn, rows - ewin.end, w);
        ewin.end = rows;
        dsp.image_band_v(band, pitch, g, pitch, ewin.buf, w, h, y0, y1);
    }
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
