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
// expanded gn, strip by strip, as the luma pyramid does.  Every pass sees its
// rows as a whole-level pass would leave them: the copy of level 0 runs a row
// ahead of the reduce (whose loads reach into the next row, and whose pads
// land in the row above), the reduce pads g beyond the band's rows, and gn
// is made two rows beyond the expand's, whose loads reach into the next row.
static void chroma_level(const ChromaDsp &d, int16_t *band, int8_t *g, ptrdiff_t pitch, int8_t *gn,
                         ptrdiff_t pitch_n, int pairs, int rows, ChromaCopy *copy, int16_t *scratch) {
    const int cpairs = pairs >> 1, crows = rows >> 1, ov = (int)ceil8(2u * (unsigned)cpairs);
    const ptrdiff_t ev = ceil8(2u * (unsigned)pairs);
    const int step = 2 * strip_rows((size_t)ev * sizeof(int16_t));
    const size_t reduce_rows = (size_t)(rows < step + 10 ? rows : step + 10);
    StripWindow<int16_t> rwin{scratch, ov}, ewin{scratch + ((reduce_rows * ov + 31) & ~(size_t)31), ev};
    int done = 0; // rows of gn made
    for (int y0 = 0; y0 < rows; y0 += step) {
        const int y1 = y0 + step < rows ? y0 + step : rows, erows = expand_v_end(y1, rows);
        const int target = erows + 2 < crows ? erows + 2 : crows;
        if (target > done) {
            const int to = target < crows ? reduce_v_end(target, crows) : rows; // the odd last row too
            if (copy) {
                // Pairs of rows, as the copy always goes; an odd last count copies one row past the plane.
                const int need = (to + 2) & ~1, end = need < rows ? need : rows;
                d.copy_flip(g + copy->done * pitch, pitch, copy->src + copy->done * copy->src_pitch, copy->src_pitch,
                            2 * pairs, end - copy->done);
                copy->done = end;
            }
            int16_t *next = rwin.keep_from(reduce_v_first(done));
            d.reduce_h(next, g + rwin.end * pitch, pitch, pairs, to - rwin.end);
            rwin.end = to;
            d.reduce_v(gn, pitch_n, rwin.buf, 2 * cpairs, crows, done, target);
            done = target;
        }
        int16_t *next = ewin.keep_from(expand_v_first(y0));
        d.expand_h(next, gn + ewin.end * pitch_n, pitch_n, cpairs, erows - ewin.end, pairs);
        ewin.end = erows;
        d.expand_band(band, pitch, g, pitch, ewin.buf, 2 * pairs, rows, copy != nullptr, y0, y1);
    }
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
