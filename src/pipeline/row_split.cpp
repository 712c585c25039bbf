#include "pipeline/row_split.h"

#include <stdint.h>
#include <string.h>

#include "api/merge_status.h"
#include "common/dsp.h"
#include "ghost/motion_mask.h"

namespace {

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

} // namespace

void motion_share(HdrContext *ctx, int part) {
    HdrRowSplit *s = row_split(ctx);
    const HdrInput *in = ctx->input;
    const size_t plane = (size_t)in->width * (size_t)in->height;
    const bool ghost = s->motion_job == SPLIT_MOTION_GHOST;
    static const int order[3] = {AE_IDX, LE_IDX, HE_IDX};

    // The masks start at 1 over the input size; the motion rows write every
    // byte of the overlap themselves, so then only the rest is filled.
    const size_t filled = ghost ? (size_t)ctx->width * (size_t)ctx->height : 0;
    size_t b0, b1;
    split_range(plane - filled, part, 3, &b0, &b1);
    for (int f : order) memset(ctx->motion_mask[f] + filled + b0, 1, b1 - b0);

    size_t r0, r1;
    if (ghost) {
        split_range((size_t)ctx->height, part, 3, &r0, &r1);
        s->counted[part] = motion_rows(ctx, in, &s->rules, (int32_t)r0, (int32_t)r1);
    } else {
        split_range((size_t)in->height, part, 3, &r0, &r1);
        for (int f : order) copy_base_rows(ctx, f, r0, r1, part == 2);
    }
}

// The three level-0 weight maps of this share's rows, normalised in the same
// pass.  Without ghost masks every mask byte is 1 and none is read.
void weight_share(HdrContext *ctx, int part) {
    size_t r0, r1;
    split_range((size_t)ctx->height, part, 3, &r0, &r1);
    if (r1 == r0) return;
    const ptrdiff_t stride = ctx->row_stride[0];
    const size_t mask_pitch = (size_t)(ctx->width & ~7);
    uint8_t *dst[3];
    const uint8_t *luma[3], *mask[3];
    for (int f = 0; f < 3; ++f) {
        dst[f] = ctx->w_gaussian_pyramid[f][0] + (ptrdiff_t)r0 * stride;
        luma[f] = ctx->img_gaussian_pyramid[f][0] + (ptrdiff_t)r0 * stride;
        mask[f] = ctx->motion_mask[f] + r0 * mask_pitch;
    }
    const bool ghost = ctx->le_flag || ctx->he_flag;
    hdr_dsp()->fusion.weight_fused(dst, luma, stride, ghost ? mask : nullptr, well_expose, ctx->width,
                                   (int)(r1 - r0));
}

void tone_share(HdrContext *ctx, int part) {
    const ToneJob *job = &row_split(ctx)->tone;
    size_t p0, p1;
    split_range((size_t)job->row_pairs, part, 2, &p0, &p1);
    tone_map_pairs(ctx, job, (int32_t)p0, (int32_t)p1);
}
