#include <string.h>

#include "common/neon.h"
#include "ghost/ghost_dsp.h"

namespace {

void mask_row_neon(const uint8_t *s, uint8_t *d, unsigned width, uint8_t threshold) {
    const uint8x16_t thr = vdupq_n_u8(threshold);
    unsigned x = 0;
    for (; x + 16 <= width; x += 16) vst1q_u8(d + x, vcgeq_u8(vld1q_u8(s + x), thr));
    if (x + 8 <= width) {
        vst1_u8(d + x, vcge_u8(vld1_u8(s + x), vget_low_u8(thr)));
        x += 8;
    }
    if (x + 4 <= width) {
        // Exactly four bytes in and out: the columns after them are not ours.
        uint32_t in;
        memcpy(&in, s + x, 4);
        const uint8x8_t m = vcge_u8(vreinterpret_u8_u32(vdup_n_u32(in)), vget_low_u8(thr));
        const uint32_t out = vget_lane_u32(vreinterpret_u32_u8(m), 0);
        memcpy(d + x, &out, 4);
    }
}

decl_mask_rows_fn(mask_rows_neon) {
    mask_row_neon(src, dst, width, threshold);
    mask_row_neon(src + src_stride, dst + dst_stride, width, threshold);
}

} // namespace

void ghost_dsp_init_neon(GhostDsp *dsp) { dsp->mask_rows = mask_rows_neon; }
