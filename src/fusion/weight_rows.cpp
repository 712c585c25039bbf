#include "fusion/weight_rows.h"

#include <stddef.h>

#include "common/dsp.h"

void weight_rows(HdrContext *ctx, int32_t r0, int32_t r1) {
    if (r1 == r0) return;
    const ptrdiff_t stride = ctx->row_stride[0];
    const size_t mask_pitch = (size_t)(ctx->width & ~7);
    uint8_t *dst[3];
    const uint8_t *luma[3], *mask[3];
    for (int f = 0; f < 3; ++f) {
        dst[f] = ctx->w_gaussian_pyramid[f][0] + (ptrdiff_t)r0 * stride;
        luma[f] = ctx->img_gaussian_pyramid[f][0] + (ptrdiff_t)r0 * stride;
        mask[f] = ctx->motion_mask[f] + (size_t)r0 * mask_pitch;
    }
    const bool ghost = ctx->le_flag || ctx->he_flag;
    hdr_dsp()->fusion.weight_fused(dst, luma, stride, ghost ? mask : nullptr, well_expose, ctx->width,
                                   (int)(r1 - r0));
}
