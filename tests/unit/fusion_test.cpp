// Exact properties of the fusion stages on the shared context: table
// entries, weight maps, normalisation and the chroma pyramid of small levels.
// (The filters' borders and roundings are pinned by checkasm against the
// references and by the merge goldens.)
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
