// The motion phase's plain parts: mask fills and, without ghost masks, the
// registered rows copied into the pyramid bases.
#include <stdint.h>
#include <string.h>

#include "ghost/motion_mask.h"

void motion_mask_fill(HdrContext *ctx, size_t begin, size_t end) {
    static const int order[3] = {AE_IDX, LE_IDX, HE_IDX};
    for (int f : order) memset(ctx->motion_mask[f] + begin, 1, end - begin);
}

// Input-size rows from frame f's crop origin into its pyramid base, each as
// far as the frame's luma plane holds it: what lies past the overlap is never
// used, and nothing past the host's plane is read.  A row of W bytes is longer
// than the base's pitch when the crop is wide, so in one pass over all rows a
// row's tail is overwritten by the rows below it.  Share rows r0 .. r1-1 owns
// the bytes from row r0's start to row r1's (the last share: to the end) and
// writes there, in row order, every row that reaches them, so the bytes are
// those of the single pass whatever order the shares run in.
void copy_base_rows(HdrContext *ctx, int f, size_t r0, size_t r1, bool last) {
    const HdrInput *in = ctx->input;
    const size_t W = (size_t)in->width, plane = W * (size_t)in->height;
    const size_t pitch = (size_t)ctx->row_stride[0];
    const uint8_t *src = ctx->aligned[f].luma;
    const size_t start = (size_t)(src - in->frame[f].luma);
    uint8_t *dst = ctx->img_gaussian_pyramid[f][0];
    const size_t lo = r0 * pitch, hi = last ? SIZE_MAX : r1 * pitch;
    const size_t reach = (W + pitch - 1) / pitch - 1; // rows above r0 whose tail lands below it
    for (size_t r = r0 > reach ? r0 - reach : 0; r < r1 && start + r * W < plane; ++r) {
        const size_t left = plane - (start + r * W);
        size_t a = r * pitch, b = a + (left < W ? left : W);
        const size_t skip = a < lo ? lo - a : 0;
        if (b > hi) b = hi;
        if (a + skip < b) memcpy(dst + a + skip, src + r * W + skip, b - a - skip);
    }
}
