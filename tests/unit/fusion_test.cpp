// Exact properties of the fusion stages on the shared context: table
// entries, weight maps, normalisation, the weight pyramid's borders, the
// bands of a constant picture, blend rounding and exact reconstruction.
#include <gtest/gtest.h>
#include <string.h>

#include "unit/test_support.h"

namespace {

TEST(FusionLuma, TableEntries) {
    const int curve[][3] = {
        {HE_IDX, 0, 255}, {LE_IDX, 0, 1},     {AE_IDX, 0, 1},     {HE_IDX, 255, 1},   {LE_IDX, 255, 255},
        {AE_IDX, 255, 1}, {HE_IDX, 111, 255}, {HE_IDX, 112, 254}, {HE_IDX, 244, 1},   {HE_IDX, 243, 2},
        {LE_IDX, 143, 254}, {LE_IDX, 144, 255}, {AE_IDX, 125, 253}, {AE_IDX, 126, 254}, {AE_IDX, 127, 255},
        {AE_IDX, 128, 255}, {AE_IDX, 129, 254}, {AE_IDX, 130, 253},
    };
    for (auto &c : curve) EXPECT_EQ(well_expose[256 * c[0] + c[1]], c[2]) << c[0] << " " << c[1];
    for (int y = 0; y < 256; ++y) {
        EXPECT_EQ(well_expose[256 * HE_IDX + y], well_expose[256 * LE_IDX + 255 - y]) << y;
        for (int f = 0; f < 3; ++f) EXPECT_GE(well_expose[256 * f + y], 1) << f << " " << y;
    }
    const int recip[][2] = {{0, 65535}, {1, 65535}, {2, 32768}, {3, 21845}, {5, 13107},
                            {30, 2184}, {256, 256}, {765, 85},  {767, 85}};
    for (auto &r : recip) EXPECT_EQ(weight_int_tab[r[0]], r[1]) << r[0];
}

// weight = min(255, curve[luma] * mask): an excluded pixel gets 0, a forced
// reference pixel (mask 255) the maximum, whatever its curve entry.
TEST(FusionLuma, WeightFromCurveAndMask) {
    HdrContext *ctx = shared_context();
    set_geometry(ctx, 24, 1, 1);
    const uint8_t luma[] = {0, 0, 0, 127, 127, 127, 255, 255, 255};
    for (int f = 0; f < 3; ++f) {
        for (int x = 0; x < 9; ++x) {
            ctx->img_gaussian_pyramid[f][0][x] = luma[x];
            ctx->motion_mask[f][x] = x % 3 == 0 ? 0 : x % 3 == 1 ? 1 : 255;
        }
        WeightWellExposed(ctx, f);
        for (int x = 0; x < 9; ++x)
            EXPECT_EQ(ctx->w_gaussian_pyramid[f][0][x], x % 3 == 0 ? 0 : x % 3 == 1 ? well_expose[256 * f + luma[x]] : 255)
                << f << " " << x;
    }
}

TEST(FusionLuma, NormalizedTriples) {
    const uint8_t in[][3] = {{0, 0, 0}, {1, 0, 0}, {255, 0, 0},     {255, 255, 255}, {200, 55, 1}, {1, 2, 0},
                             {100, 100, 0}, {1, 1, 1}, {0, 0, 7}, {0, 90, 0}, {17, 0, 17}, {254, 254, 1}};
    const uint8_t want[][3] = {{0, 0, 0}, {255, 0, 0}, {255, 0, 0},    {85, 85, 85},   {200, 55, 1}, {85, 171, 0},
                               {128, 128, 0}, {85, 85, 85}, {0, 0, 255}, {0, 255, 0}, {128, 0, 128}, {127, 127, 1}};
    auto wp = [](int f) { return shared_context()->w_gaussian_pyramid[f][0]; };
    // Width 20: one block of 16, the last 4 of each row untouched.
    const int stride = 32;
    for (int f = 0; f < 3; ++f) {
        memset(wp(f), 9, stride * 2);
        for (int i = 0; i < 12; ++i) wp(f)[i] = in[i][f];
    }
    WeightNormalize(shared_context()->w_gaussian_pyramid, 20, 2, stride);
    for (int f = 0; f < 3; ++f) {
        for (int i = 0; i < 12; ++i) EXPECT_EQ(wp(f)[i], want[i][f]) << "triple " << i;
        for (int x = 16; x < 20; ++x) EXPECT_EQ(wp(f)[x], 9) << "tail " << x;
    }
}

// Constant weights stay constant at every level, bottom and right borders
// included; a lone corner pixel of 255 gives (54 * 54 * 255 + 2048) >> 12 =
// 182 at level 1, and its outer taps 54 * 255 and 255 beside and below it.
// The right border mirrors about the last pixel: column w-2 also stands in
// for column w, so it counts 54 + 1 times across.
TEST(FusionLuma, WeightPyramidConstantAndCorner) {
    HdrContext *ctx = shared_context();
    const int w = 200, h = 148, levels = 7; // odd sizes from level 2 on
    set_geometry(ctx, w, h, levels);
    uint8_t *const *wp = ctx->w_gaussian_pyramid[0];
    for (int value : {0, 1, 128, 255}) {
        memset(wp[0], value, (size_t)ctx->row_stride[0] * h);
        WeightGaussPyramid(wp, ctx->inter_buf[0], w, h, ctx->row_stride, levels);
        for (int l = 1; l < levels; ++l)
            for (int y = 0; y < (h >> l); ++y)
                for (int x = 0; x < (w >> l); ++x)
                    ASSERT_EQ(wp[l][y * ctx->row_stride[l] + x], value) << "level " << l << " (" << x << ", " << y << ")";
    }
    const int s1 = ctx->row_stride[1];
    const struct {
        int at, probe, want;
    } spots[] = {{0, 0, 182}, {0, 1, (54 * 255 + 2048) >> 12}, {0, s1, (54 * 255 + 2048) >> 12},
                 {0, s1 + 1, (255 + 2048) >> 12}, {w - 2, w / 2 - 1, (54 * 55 * 255 + 2048) >> 12}};
    for (const auto &s : spots) {
        memset(wp[0], 0, (size_t)ctx->row_stride[0] * h);
        wp[0][s.at] = 255;
        WeightGaussPyramid(wp, ctx->inter_buf[0], w, h, ctx->row_stride, 2);
        EXPECT_EQ(wp[1][s.probe], s.want) << s.at << " " << s.probe;
    }
}

// A constant picture has no detail: bands are 0 except where the weight-7
// rules darken the expansion (odd last column, odd last row), there
// v - ((56 v + 32) >> 6); level 0's first two and last two (three when odd)
// rows are 0 whatever the picture.  With one level the residual is the
// picture, widened.
TEST(FusionLuma, ConstantPictureBands) {
    HdrContext *ctx = shared_context();
    const int levels = 7;
    for (auto size : {std::make_pair(200, 148), std::make_pair(201, 149)}) {
        const int w = size.first, h = size.second;
        set_geometry(ctx, w, h, levels);
        for (int value : {1, 100, 255}) {
            memset(ctx->img_gaussian_pyramid[1][0], value, (size_t)ctx->row_stride[0] * h);
            ImageLaplacianPyramid(ctx, levels, 1);
            const int dark = value - ((56 * value + 32) >> 6);
            for (int l = 0; l < levels; ++l) {
                const int lw = w >> l, lh = h >> l;
                for (int y = 0; y < lh; ++y)
                    for (int x = 0; x < lw; ++x) {
                        const bool zeroed = l == 0 && (y < 2 || y >= lh - ((lh & 1) ? 3 : 2));
                        const bool odd_edge = (lw & 1 && x == lw - 1) || (lh & 1 && y == lh - 1);
                        ASSERT_EQ(ctx->img_laplacian_pyramid[1][l].IY[y * ctx->row_stride[l] + x],
                                  l == levels - 1 ? value : zeroed ? 0 : odd_edge ? dark : 0)
                            << w << "x" << h << " v " << value << " level " << l << " (" << x << ", " << y << ")";
                    }
            }
        }
    }
    set_geometry(ctx, 16, 8, 1);
    for (int i = 0; i < 8 * ctx->row_stride[0]; ++i) ctx->img_gaussian_pyramid[1][0][i] = (uint8_t)(i * 13);
    ImageLaplacianPyramid(ctx, 1, 1);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 16; ++x)
            ASSERT_EQ(ctx->img_laplacian_pyramid[1][0].IY[y * ctx->row_stride[0] + x],
                      ctx->img_gaussian_pyramid[1][0][y * ctx->row_stride[0] + x]);
}

// One frame at weight 255 (the others 0) on one level, blend only: each
// value b becomes (255 b + 128) >> 8 (255 -> 254, -255 -> -254); equal
// weights 85 on equal pyramids the same.
TEST(FusionLuma, BlendRounding) {
    HdrContext *ctx = shared_context();
    const uint8_t weights[][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {85, 85, 85}};
    const int16_t values[] = {255, -255, 0, 1, -1, 128, -128, 100, 511, -512};
    set_geometry(ctx, 24, 4, 1);
    for (const auto &wt : weights) {
        for (int f = 0; f < 3; ++f) {
            memset(ctx->w_gaussian_pyramid[f][0], wt[f], (size_t)ctx->row_stride[0] * 5);
            for (int i = 0; i < 4 * ctx->row_stride[0]; ++i) ctx->img_laplacian_pyramid[f][0].IY[i] = values[i % 10];
        }
        ImageReconstruct(ctx, 1);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 24; ++x) {
                const int i = y * ctx->row_stride[0] + x;
                ASSERT_EQ(ctx->img_laplacian_pyramid[0][0].IY[i], (255 * values[i % 10] + 128) >> 8) << (int)wt[0] << " " << i;
            }
    }
}

// Chroma with n < 3 (never reached by a merge, whose bitmaps need frames of
// 64 rows and more): only the signed level-0 plane, in residual slot 0, each
// row exactly its values; 0 -> -128, 255 -> 127.
TEST(FusionChroma, ResidualOnlyBelowThreeLevels) {
    HdrContext *ctx = shared_context();
    const int W = 40, H = 12, cs = 48;
    set_geometry(ctx, W, H);
    ASSERT_EQ(ctx->chroma_stride[0], cs);
    std::vector<uint8_t> plane((size_t)W * (H / 2 + 2) + 64);
    for (size_t i = 0; i < plane.size(); ++i) plane[i] = (i % 3) ? 255 : 0;
    ctx->aligned[LE_IDX].chroma = plane.data();
    int16_t *band = ctx->img_laplacian_pyramid[LE_IDX][0].IC;
    for (int n : {1, 2}) {
        memset(band, 0x55, (size_t)(H / 2) * cs * 2);
        ImageLaplacianPyramidChroma(ctx, W, n, LE_IDX);
        for (int y = 0; y < H / 2; ++y)
            for (int x = 0; x < cs; ++x)
                ASSERT_EQ(band[y * cs + x], x < W ? ((y * W + x) % 3 ? 127 : -128) : 0x5555) << n << " " << x << "," << y;
    }
}

} // namespace
