#include "registration/crop_origins.h"

static inline int32_t min3_with_zero(int32_t a, int32_t b) {
    int32_t m = 0;
    if (a < m) m = a;
    if (b < m) m = b;
    return m;
}

// A side frame's pixel (r, c) matches AE's (r - y, c - x): start each frame
// where the common overlap starts, the smallest origin being 0.
void crop_origins(const HdrContext *ctx, int32_t origins[6]) {
    const int32_t mx = min3_with_zero(ctx->he_offset.x, ctx->le_offset.x);
    const int32_t my = min3_with_zero(ctx->he_offset.y, ctx->le_offset.y);
    origins[0] = ctx->he_offset.x - mx;
    origins[1] = ctx->he_offset.y - my;
    origins[2] = ctx->le_offset.x - mx;
    origins[3] = ctx->le_offset.y - my;
    origins[4] = -mx;
    origins[5] = -my;
}
