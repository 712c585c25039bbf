// Row pitches of the pyramid levels, one formula for the driver, the tests
// and the benchmarks: luma level l (its 8-bit image and weight levels and its
// 16-bit bands) and chroma level l, from the working width.
#pragma once
#include <stdint.h>

#include "varo_hdr.h"

static inline int32_t level_row_stride(int32_t width, int level) {
    return (int32_t)((((uint32_t)width >> level) + 10) & ~7u);
}
static inline int32_t level_chroma_stride(int32_t width, int level) {
    return (int32_t)((((uint32_t)width >> level) + 13) & ~7u);
}

// Fills row_stride and chroma_stride of ctx->levels levels of ctx->width.
static inline void set_level_pitches(HdrContext *ctx) {
    for (int l = 0; l < ctx->levels; ++l) {
        ctx->row_stride[l] = level_row_stride(ctx->width, l);
        ctx->chroma_stride[l] = level_chroma_stride(ctx->width, l);
    }
}
