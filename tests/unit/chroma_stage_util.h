// Geometry and buffer bookkeeping for the chroma and normalisation stage
// tests on the shared context.
#pragma once
#include <math.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "unit/test_support.h"

// Working size as the driver sets it: levels and the per-level pitches.
inline void set_geometry(HdrContext *ctx, int width, int height) {
    ctx->width = width;
    ctx->height = height;
    const int m = width < height ? width : height;
    ctx->levels = (int)floor(log((double)(float)m) / 0.6931471805599453);
    for (int l = 0; l < ctx->levels; ++l) {
        ctx->row_stride[l] = ((width >> l) + 10) & ~7;
        ctx->chroma_stride[l] = ((width >> l) + 13) & ~7;
    }
}

struct Region {
    uint8_t *p;
    size_t n;
};

// Everything the chroma stages and the normalisation read or write for the
// current geometry and chroma level argument n, guards and a few rows of slack included.
inline std::vector<Region> chroma_regions(HdrContext *ctx, int n) {
    std::vector<Region> r;
    const int rows0 = ctx->height >> 1;
    for (int f = 0; f < 3; ++f) {
        for (int b = 0; b < 2; ++b)
            r.push_back({ctx->img_gaussian_pyramid[f][b] - 16,
                         16 + (size_t)((rows0 >> b) + 2) * ctx->chroma_stride[b] + 64});
        for (int k = 0; k < n - 1 || k == 0; ++k)
            r.push_back({(uint8_t *)ctx->img_laplacian_pyramid[f][k].IC - 32,
                         32 + (size_t)((rows0 >> k) + 2) * ctx->chroma_stride[k] * 2 + 64});
        for (int l = 1; l <= n && l < ctx->levels; ++l)
            r.push_back({ctx->w_gaussian_pyramid[f][l],
                         (size_t)((ctx->height >> l) + 1) * ctx->row_stride[l]});
        r.push_back({(uint8_t *)ctx->inter_buf[f], (size_t)rows0 * ((ctx->width + 7) & ~7) * 2 + 128});
    }
    r.push_back({(uint8_t *)ctx->img_laplacian_pyramid[0][0].IY,
                 (size_t)ctx->height * ctx->row_stride[0] * 2});
    return r;
}

inline void fill_regions(const std::vector<Region> &rs, uint32_t seed) {
    for (const Region &r : rs)
        for (size_t i = 0; i < r.n; ++i) {
            seed ^= seed << 13, seed ^= seed >> 17, seed ^= seed << 5;
            r.p[i] = (uint8_t)(seed >> 7);
        }
}

inline std::vector<uint64_t> hash_regions(const std::vector<Region> &rs) {
    std::vector<uint64_t> h;
    for (const Region &r : rs) h.push_back(hash_plane(r.p, (int)r.n, (int)r.n, 1));
    return h;
}
