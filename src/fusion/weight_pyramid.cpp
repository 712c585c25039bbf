// Gaussian pyramid of one frame's weights: [1 4 54 4 1] / 64 in each
// direction, halving each level.
#include "common/arith.h"
#include "common/dsp.h"
#include "fusion/pyramid_strips.h"
#include "varo_hdr.h"

extern "C" VARO_HDR_API void WeightGaussPyramid(uint8_t *const *level_buffers, int16_t *inter_buf,
                                                int32_t width, int32_t height,
                                                const int32_t *row_stride, int32_t level_count) {
    if (level_count < 2) return;
    const FusionDsp &dsp = hdr_dsp()->fusion;
    uint16_t *t = (uint16_t *)inter_buf;
    for (int l = 1; l < level_count; ++l)
        reduce_strips(dsp.weight_reduce_h, dsp.weight_reduce_v, level_buffers[l], row_stride[l], level_buffers[l - 1],
                      row_stride[l - 1], width >> (l - 1), height >> (l - 1), t);
}
