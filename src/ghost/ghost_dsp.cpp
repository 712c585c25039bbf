#include "ghost/ghost_dsp.h"

namespace {

inline void mask_chunk(const uint8_t *src, uint8_t *dst, unsigned n, uint8_t threshold) {
    for (unsigned i = 0; i < n; ++i) dst[i] = src[i] >= threshold ? 255 : 0;
}

decl_mask_rows_fn(mask_rows_c) {
    for (int row = 0; row < 2; ++row) {
        const uint8_t *s = src + row * src_stride;
        uint8_t *d = dst + row * dst_stride;
        unsigned x = 0;
        for (; x + 16 <= width; x += 16) mask_chunk(s + x, d + x, 16, threshold);
        if (x + 8 <= width) {
            mask_chunk(s + x, d + x, 8, threshold);
            x += 8;
        }
        if (x + 4 <= width) mask_chunk(s + x, d + x, 4, threshold);
    }
}

} // namespace

void ghost_dsp_init_c(GhostDsp *dsp) { dsp->mask_rows = mask_rows_c; }
