// Chroma Laplacian pyramid of one frame: the luma pyramid's filters applied
// per component to the signed (byte - 128) interleaved chroma plane.
#include "common/arith.h"
#include "common/dsp.h"
#include "fusion/pyramid_strips.h"
#include "varo_hdr.h"

namespace {

// Rows of the signed level-0 copy made so far, and the host plane it comes from.
struct ChromaCopy {
    const uint8_t *src;
    ptrdiff_t src_pitch;
    int done;
};

} // namespace

// One level: reduce g (pairs x rows) into gn and the band of g against the
// expanded gn, strip by strip, as the luma pyramid does.  At level 0 the copy
// runs a row ahead of the reduce (whose loads reach into the next row, and
// whose pads land in the row above).
static void chroma_level(const ChromaDsp &d, int16_t *band, int8_t *g, ptrdiff_t pitch, int8_t *gn,
                         ptrdiff_t pitch_n, int pairs, int rows, ChromaCopy *copy, int16_t *scratch) {
    const int cpairs = pairs >> 1, crows = rows >> 1;
    laplacian_strips(
        scratch, ceil8(2u * (unsigned)cpairs), ceil8(2u * (unsigned)pairs), rows, crows,
        [&](int to) {
            if (!copy) return;
            // Pairs of rows, as the copy always goes; an odd last count copies one row past the plane.
            const int need = (to + 2) & ~1, end = need < rows ? need : rows;
            d.copy_flip(g + copy->done * pitch, pitch, copy->src + copy->done * copy->src_pitch, copy->src_pitch,
                        2 * pairs, end - copy->done);
            copy->done = end;
        },
        [&](int16_t *t, int row, int n) { d.reduce_h(t, g + row * pitch, pitch, pairs, n); },
        [&](const int16_t *t, int y0, int y1) { d.reduce_v(gn, pitch_n, t, 2 * cpairs, crows, y0, y1); },
        [&](int16_t *t, int row, int n) { d.expand_h(t, gn + row * pitch_n, pitch_n, cpairs, n, pairs); },
        [&](const int16_t *t, int y0, int y1) {
            d.expand_band(band, pitch, g, pitch, t, 2 * pairs, rows, copy != nullptr, y0, y1);
        });
}

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
    ChromaCopy copy{ctx->aligned[frame].chroma, src_pitch, 0};

    // The pyramid has n - 1 levels: bands 0 .. n-3 and the residual at n-2.
    const int top = n < 3 ? 0 : n - 2;
    if (top == 0) d.copy_flip(gauss[0], cs[0], copy.src, src_pitch, 2 * pairs0, rows0);
    for (int k = 0; k < top; ++k)
        chroma_level(d, out[k].IC, gauss[k & 1], cs[k], gauss[(k + 1) & 1], cs[k + 1], pairs0 >> k, rows0 >> k,
                     k == 0 ? &copy : nullptr, inter);
    d.residual(out[top].IC, cs[top], gauss[top & 1], cs[top], 2 * (pairs0 >> top), rows0 >> top);
}
