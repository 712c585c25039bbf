// Stage tests of the luma fusion: every kernel variant leaves the same bytes
// in every buffer the stages touch (slack included), plus the exact
// properties the weights, pyramids and reconstruction must have.
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "unit/test_support.h"

namespace {

int ceil8(int n) { return (n + 7) & ~7; }

void set_geometry(HdrContext *ctx, int w, int h, int levels) {
    ctx->width = w;
    ctx->height = h;
    ctx->levels = levels;
    for (int l = 0; l < levels; ++l) ctx->row_stride[l] = ((w >> l) + 10) & ~7;
}

struct Region {
    std::string name;
    uint8_t *p;
    size_t n;
};

// Every byte the luma stages may touch for this geometry, guards and slack
// rows included.
std::vector<Region> luma_regions(HdrContext *ctx, int w, int h, int levels) {
    std::vector<Region> r;
    auto rows = [&](int l) { return (size_t)((h >> l) + 2) * ctx->row_stride[l] + 32; };
    for (int f = 0; f < 3; ++f) {
        std::string fs = std::to_string(f);
        r.push_back({"gauss0 f" + fs, ctx->img_gaussian_pyramid[f][0] - 16, 16 + rows(0)});
        r.push_back({"gauss1 f" + fs, ctx->img_gaussian_pyramid[f][1] - 16, 16 + rows(1)});
        r.push_back({"scratch f" + fs, (uint8_t *)ctx->inter_buf[f], (size_t)(h + 2) * ceil8(w) * 2});
        r.push_back({"mask f" + fs, ctx->motion_mask[f], (size_t)w * h});
        for (int l = 0; l < levels; ++l) {
            std::string ls = " l" + std::to_string(l);
            r.push_back({"weights f" + fs + ls, ctx->w_gaussian_pyramid[f][l] - 16, 16 + rows(l)});
            r.push_back({"band f" + fs + ls, (uint8_t *)ctx->img_laplacian_pyramid[f][l].IY - 32,
                         32 + 2 * rows(l)});
        }
    }
    return r;
}

uint32_t g_rng;
uint8_t next_byte() {
    g_rng = g_rng * 1664525u + 1013904223u;
    return (uint8_t)(g_rng >> 24);
}

// Deterministic contents: noise everywhere, then smooth luma with noise and
// masks of mostly 1 (0 here and there, 255 in the reference frame).
void fill_inputs(HdrContext *ctx, const std::vector<Region> &regions, int w, int h, uint32_t seed) {
    g_rng = seed;
    for (const Region &r : regions)
        for (size_t i = 0; i < r.n; ++i) r.p[i] = next_byte();
    for (int f = 0; f < 3; ++f)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                int v = (x * 3 + y * 2 + f * 70) % 256 + (next_byte() & 15) - 8;
                ctx->img_gaussian_pyramid[f][0][y * ctx->row_stride[0] + x] =
                    (uint8_t)(v < 0 ? 0 : v > 255 ? 255 : v);
                uint8_t m = next_byte();
                ctx->motion_mask[f][y * w + x] = m < 20 ? 0 : (f == AE_IDX && m > 250) ? 255 : 1;
            }
}

void run_luma_fusion(HdrContext *ctx) {
    for (int f = 0; f < 3; ++f) WeightWellExposed(ctx, f);
    WeightNormalize(ctx->w_gaussian_pyramid, ctx->width, ctx->height, ctx->row_stride[0]);
    for (int f = 0; f < 3; ++f) {
        WeightGaussPyramid(ctx->w_gaussian_pyramid[f], ctx->inter_buf[f], ctx->width, ctx->height,
                           ctx->row_stride, ctx->levels);
        ImageLaplacianPyramid(ctx, ctx->levels, f);
    }
    ImageReconstruct(ctx, ctx->levels);
}

TEST(FusionLuma, VariantsLeaveIdenticalBytes) {
    struct Case {
        int w, h, levels;
    } cases[] = {
        {328, 204, 7}, // odd widths and heights from level 2 on
        {264, 132, 1}, {264, 132, 2}, {264, 132, 3}, {264, 132, 5}, {264, 132, 7},
        {2048, 2048, 11},
    };
    HdrContext *ctx = shared_context();
    std::vector<DspVariant> variants = dsp_variants();
    for (const Case &c : cases) {
        set_geometry(ctx, c.w, c.h, c.levels);
        std::vector<Region> regions = luma_regions(ctx, c.w, c.h, c.levels);
        std::vector<std::vector<uint8_t>> first;
        for (const DspVariant &v : variants) {
            fill_inputs(ctx, regions, c.w, c.h, 12345u + c.levels);
            {
                ScopedDsp use(v.table);
                run_luma_fusion(ctx);
            }
            for (size_t i = 0; i < regions.size(); ++i) {
                const Region &r = regions[i];
                if (first.size() < regions.size()) {
                    first.emplace_back(r.p, r.p + r.n);
                    continue;
                }
                size_t k = 0;
                while (k < r.n && r.p[k] == first[i][k]) ++k;
                EXPECT_EQ(k, r.n) << v.name << " differs from " << variants[0].name << " in "
                                  << r.name << " at byte " << k << " (" << c.w << "x" << c.h
                                  << ", " << c.levels << " levels)";
            }
        }
    }
}

TEST(FusionLuma, TableEntries) {
    struct {
        int frame, luma, weight;
    } curve[] = {
        {HE_IDX, 0, 255}, {LE_IDX, 0, 1},   {AE_IDX, 0, 1},   {HE_IDX, 255, 1}, {LE_IDX, 255, 255},
        {AE_IDX, 255, 1}, {HE_IDX, 111, 255}, {HE_IDX, 112, 254}, {HE_IDX, 244, 1}, {HE_IDX, 243, 2},
        {LE_IDX, 143, 254}, {LE_IDX, 144, 255}, {AE_IDX, 125, 253}, {AE_IDX, 126, 254},
        {AE_IDX, 127, 255}, {AE_IDX, 128, 255}, {AE_IDX, 129, 254}, {AE_IDX, 130, 253},
    };
    for (auto &c : curve) EXPECT_EQ(well_expose[256 * c.frame + c.luma], c.weight) << c.frame << " " << c.luma;
    for (int y = 0; y < 256; ++y) {
        EXPECT_EQ(well_expose[256 * HE_IDX + y], well_expose[256 * LE_IDX + 255 - y]) << y;
        for (int f = 0; f < 3; ++f) EXPECT_GE(well_expose[256 * f + y], 1) << f << " " << y;
    }
    struct {
        int s, q;
    } recip[] = {{0, 65535}, {1, 65535}, {2, 32768}, {3, 21845}, {5, 13107}, {30, 2184}, {256, 256},
                 {765, 85}, {767, 85}};
    for (auto &r : recip) EXPECT_EQ(weight_int_tab[r.s], r.q) << r.s;
}

// Width 44 is not a multiple of 8: 40 pixels per row are weighted, the last
// 4 stay as they were, the rows drift 4 bytes each and the mask is read
// densely; mask 0 zeroes, 255 forces the maximum.
TEST(FusionLuma, WeightMapCoverageAndMask) {
    HdrContext *ctx = shared_context();
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        const int w = 44, h = 4;
        set_geometry(ctx, w, h, 1);
        const int stride = ctx->row_stride[0], step = stride - (w & 7), n = w & ~7;
        uint8_t *luma = ctx->img_gaussian_pyramid[AE_IDX][0];
        uint8_t *out = ctx->w_gaussian_pyramid[AE_IDX][0];
        uint8_t *mask = ctx->motion_mask[AE_IDX];
        memset(out, 0xEE, (size_t)stride * (h + 1));
        for (int i = 0; i < stride * (h + 1); ++i) luma[i] = (uint8_t)(i * 7);
        for (int i = 0; i < n * h; ++i) mask[i] = i % 5 == 0 ? 0 : i % 5 == 1 ? 255 : 1;
        WeightWellExposed(ctx, AE_IDX);
        for (int r = 0; r < h; ++r)
            for (int x = 0; x < w; ++x) {
                int o = r * step + x, m = mask[r * n + x];
                int want = x >= n ? 0xEE : m == 0 ? 0 : m == 255 ? 255 : well_expose[512 + luma[o]];
                ASSERT_EQ(out[o], want) << v.name << " row " << r << " x " << x;
            }
        ctx->height = 0; // nothing at all
        memset(out, 0xEE, 64);
        WeightWellExposed(ctx, AE_IDX);
        EXPECT_EQ(out[0], 0xEE) << v.name;
    }
}

TEST(FusionLuma, NormalizedTriples) {
    const uint8_t in[][3] = {{0, 0, 0},       {1, 0, 0},     {255, 0, 0}, {255, 255, 255},
                             {200, 55, 1},    {1, 2, 0},     {100, 100, 0}, {1, 1, 1},
                             {0, 0, 7},       {0, 90, 0},    {17, 0, 17}, {254, 254, 1}};
    const uint8_t want[][3] = {{0, 0, 0},     {255, 0, 0},   {255, 0, 0}, {85, 85, 85},
                               {200, 55, 1},  {85, 171, 0},  {128, 128, 0}, {85, 85, 85},
                               {0, 0, 255},   {0, 255, 0},   {128, 0, 128}, {127, 127, 1}};
    const int count = sizeof in / sizeof in[0];
    HdrContext *ctx = shared_context();
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        // Width 20: one block of 16, the last 4 of each row untouched.
        const int w = 20, h = 2, stride = 32;
        for (int f = 0; f < 3; ++f) {
            uint8_t *p = ctx->w_gaussian_pyramid[f][0];
            memset(p, 9, stride * h);
            for (int i = 0; i < count; ++i) p[(i / 16) * (stride - 4) + i % 16] = in[i][f];
        }
        WeightNormalize(ctx->w_gaussian_pyramid, w, h, stride);
        for (int f = 0; f < 3; ++f) {
            const uint8_t *p = ctx->w_gaussian_pyramid[f][0];
            for (int i = 0; i < count; ++i)
                EXPECT_EQ(p[(i / 16) * (stride - 4) + i % 16], want[i][f]) << v.name << " triple " << i;
            for (int x = 16; x < 20; ++x) EXPECT_EQ(p[x], 9) << v.name << " tail " << x;
        }
    }
}

// Constant weights stay constant at every level; a lone corner pixel of 255
// gives (54 * 54 * 255 + 2048) >> 12 = 182 at level 1.
TEST(FusionLuma, WeightPyramidConstantAndCorner) {
    HdrContext *ctx = shared_context();
    const int w = 200, h = 148, levels = 7; // odd sizes from level 2 on
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        set_geometry(ctx, w, h, levels);
        for (int value : {0, 1, 128, 255}) {
            memset(ctx->w_gaussian_pyramid[0][0], value, (size_t)ctx->row_stride[0] * h);
            WeightGaussPyramid(ctx->w_gaussian_pyramid[0], ctx->inter_buf[0], w, h, ctx->row_stride, levels);
            for (int l = 1; l < levels; ++l)
                for (int y = 0; y < (h >> l); ++y)
                    for (int x = 0; x < (w >> l); ++x)
                        ASSERT_EQ(ctx->w_gaussian_pyramid[0][l][y * ctx->row_stride[l] + x], value)
                            << v.name << " level " << l << " (" << x << ", " << y << ")";
        }
        memset(ctx->w_gaussian_pyramid[0][0], 0, (size_t)ctx->row_stride[0] * h);
        ctx->w_gaussian_pyramid[0][0][0] = 255;
        WeightGaussPyramid(ctx->w_gaussian_pyramid[0], ctx->inter_buf[0], w, h, ctx->row_stride, 2);
        const uint8_t *l1 = ctx->w_gaussian_pyramid[0][1];
        EXPECT_EQ(l1[0], 182) << v.name;
        // Reached through an outer tap only, once across and once down.
        EXPECT_EQ(l1[1], (54 * 255 + 2048) >> 12) << v.name;
        EXPECT_EQ(l1[ctx->row_stride[1]], (54 * 255 + 2048) >> 12) << v.name;
        EXPECT_EQ(l1[ctx->row_stride[1] + 1], (255 + 2048) >> 12) << v.name;
        // The right border mirrors about the last pixel: column w-2 also
        // stands in for column w, so it counts 54 + 1 times across.
        memset(ctx->w_gaussian_pyramid[0][0], 0, (size_t)ctx->row_stride[0] * h);
        ctx->w_gaussian_pyramid[0][0][w - 2] = 255;
        WeightGaussPyramid(ctx->w_gaussian_pyramid[0], ctx->inter_buf[0], w, h, ctx->row_stride, 2);
        EXPECT_EQ(l1[w / 2 - 1], (54 * 55 * 255 + 2048) >> 12) << v.name;
    }
}

// A constant picture has no detail: bands are 0 except where the weight-7
// rules darken the expansion (odd last column, odd last row), there
// v - ((56 v + 32) >> 6); level 0's first two and last two (three when odd)
// rows are 0 whatever the picture.
TEST(FusionLuma, ConstantPictureBands) {
    HdrContext *ctx = shared_context();
    const int levels = 7;
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        for (auto size : {std::make_pair(200, 148), std::make_pair(201, 149)}) {
            const int w = size.first, h = size.second;
            set_geometry(ctx, w, h, levels);
            for (int value : {1, 100, 255}) {
                memset(ctx->img_gaussian_pyramid[1][0], value, (size_t)ctx->row_stride[0] * h);
                ImageLaplacianPyramid(ctx, levels, 1);
                const int dark = value - ((56 * value + 32) >> 6);
                for (int l = 0; l < levels; ++l) {
                    const int lw = w >> l, lh = h >> l;
                    const int16_t *b = ctx->img_laplacian_pyramid[1][l].IY;
                    for (int y = 0; y < lh; ++y)
                        for (int x = 0; x < lw; ++x) {
                            bool zeroed = l == 0 && (y < 2 || y >= lh - ((lh & 1) ? 3 : 2));
                            bool odd_edge = (lw & 1 && x == lw - 1) || (lh & 1 && y == lh - 1);
                            int want = l == levels - 1 ? value : zeroed ? 0 : odd_edge ? dark : 0;
                            ASSERT_EQ(b[y * ctx->row_stride[l] + x], want)
                                << v.name << " " << w << "x" << h << " v " << value << " level " << l
                                << " (" << x << ", " << y << ")";
                        }
                }
            }
        }
        // One level: the residual is the picture, widened.
        set_geometry(ctx, 16, 8, 1);
        for (int i = 0; i < 8 * ctx->row_stride[0]; ++i) ctx->img_gaussian_pyramid[1][0][i] = (uint8_t)(i * 13);
        ImageLaplacianPyramid(ctx, 1, 1);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 16; ++x)
                ASSERT_EQ(ctx->img_laplacian_pyramid[1][0].IY[y * ctx->row_stride[0] + x],
                          ctx->img_gaussian_pyramid[1][0][y * ctx->row_stride[0] + x]) << v.name;
    }
}

void fill_weights(HdrContext *ctx, int w, int h, int levels, const uint8_t wt[3]) {
    for (int f = 0; f < 3; ++f)
        for (int l = 0; l < levels; ++l)
            memset(ctx->w_gaussian_pyramid[f][l], wt[f], (size_t)ctx->row_stride[l] * ((h >> l) + 1));
    (void)w;
}

// Three identical constant frames with weights summing to 256 everywhere
// reconstruct to the constant exactly.
TEST(FusionLuma, ConstantFramesReconstructExactly) {
    HdrContext *ctx = shared_context();
    const int w = 256, h = 256, levels = 8;
    const uint8_t weights[][3] = {{100, 100, 56}, {0, 0, 255}, {86, 85, 85}};
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        set_geometry(ctx, w, h, levels);
        for (int value : {0, 37, 128, 255}) {
            for (int f = 0; f < 3; ++f) {
                memset(ctx->img_gaussian_pyramid[f][0], value, (size_t)ctx->row_stride[0] * h);
                ImageLaplacianPyramid(ctx, levels, f);
            }
            fill_weights(ctx, w, h, levels, weights[value % 3 == 0 ? 0 : 2]);
            ImageReconstruct(ctx, levels);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    ASSERT_EQ(ctx->img_laplacian_pyramid[0][0].IY[y * ctx->row_stride[0] + x], value)
                        << v.name << " v " << value << " (" << x << ", " << y << ")";
        }
    }
}

// One frame at weight 255, the others at 0: each value b becomes
// (255 b + 128) >> 8 (255 -> 254, -255 -> -254); equal weights 85 on equal
// pyramids give the same.  One level: blend only, no collapse.
TEST(FusionLuma, SingleFrameBlend) {
    HdrContext *ctx = shared_context();
    const int w = 24, h = 4;
    const int16_t values[] = {255, -255, 0, 1, -1, 128, -128, 100, 511, -512};
    const int nv = sizeof values / sizeof values[0];
    const uint8_t weights[][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {85, 85, 85}};
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        set_geometry(ctx, w, h, 1);
        for (auto &wt : weights) {
            for (int f = 0; f < 3; ++f)
                for (int i = 0; i < h * ctx->row_stride[0]; ++i)
                    ctx->img_laplacian_pyramid[f][0].IY[i] = values[i % nv];
            fill_weights(ctx, w, h, 1, wt);
            ImageReconstruct(ctx, 1);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    int i = y * ctx->row_stride[0] + x, b = values[i % nv];
                    ASSERT_EQ(ctx->img_laplacian_pyramid[0][0].IY[i], (255 * b + 128) >> 8)
                        << v.name << " b " << b;
                }
        }
    }
}

} // namespace
