// Fixed-threshold mask of the reference frame's overlap, for hosts that want one.
#include "common/dsp.h"
#include "varo_hdr.h"

extern "C" VARO_HDR_API void ImgMaskCalcAL(HdrContext *ctx, uint8_t *mask, int32_t source_stride,
                                           int32_t threshold) {
    const int32_t width = ctx->width, height = ctx->height;
    if (height < 1) return;
    const uint8_t *src = ctx->aligned[AE_IDX].luma;
    const mask_rows_fn mask_rows = hdr_dsp()->ghost.mask_rows;
    // Rows go in pairs, so an odd height also writes row `height`.
    for (int32_t y = 0; y < height; y += 2)
        mask_rows(src + (ptrdiff_t)y * source_stride, source_stride, mask + (ptrdiff_t)y * width,
                  width, (unsigned)width, (uint8_t)threshold);
}
