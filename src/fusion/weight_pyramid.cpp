// Gaussian pyramid of one frame's weights: [1 4 54 4 1] / 64 in each
// direction, halving each level.
#include "common/arith.h"
#include "common/dsp.h"
#include "fusion/pyramid_rows.h"
#include "varo_hdr.h"

static inline uint8_t weight_out(uint32_t sum) { return min_u8((sum + 2048) >> 12); }

decl_reduce_v_fn(weight_reduce_v_c) {
    const ptrdiff_t s = out_w;
    for (int x = 0; x < out_w; ++x)
        dst[x] = weight_out(54u * t[x] + 8u * t[s + x] + 2u * t[2 * s + x]);
    for (int k = 1; k < out_h - 1; ++k) {
        const uint16_t *c = t + 2 * k * s;
        uint8_t *d = dst + k * dst_stride;
        for (int x = 0; x < out_w; ++x)
            d[x] = weight_out(c[x - 2 * s] + 4u * c[x - s] + 54u * c[x] + 4u * c[x + s] + c[x + 2 * s]);
    }
    // The row below the bottom centre is the centre itself, not a mirror.
    const int k = out_h - 1;
    const uint16_t *c = t + 2 * k * s;
    uint8_t *d = dst + k * dst_stride;
    for (int x = 0; x < out_w; ++x)
        d[x] = weight_out(c[x - 2 * s] + 4u * c[x - s] + 55u * c[x] + 4u * c[x + s]);
}

extern "C" VARO_HDR_API void WeightGaussPyramid(uint8_t *const *level_buffers, int16_t *inter_buf,
                                                int32_t width, int32_t height,
                                                const int32_t *row_stride, int32_t level_count) {
    if (level_count < 2) return;
    const FusionDsp &dsp = hdr_dsp()->fusion;
    uint16_t *t = (uint16_t *)inter_buf;
    int w = width, h = height;
    for (int l = 1; l < level_count; ++l) {
        dsp.weight_reduce_h(t, level_buffers[l - 1], row_stride[l - 1], w, h);
        w >>= 1;
        h >>= 1;
        dsp.weight_reduce_v(level_buffers[l], row_stride[l], t, (int)ceil8((unsigned)w), h);
    }
}
