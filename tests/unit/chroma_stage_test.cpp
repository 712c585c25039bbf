// Designed values of the chroma pyramid and reconstruction on the shared
// context, and the blend's spill onto the next row.
#include <gtest/gtest.h>
#include <string.h>

#include "unit/test_support.h"

namespace {

// Host chroma planes of the three frames (pitch `width`, spare rows for the
// paired copy and the 16-byte groups), all `value`.
std::vector<uint8_t> g_planes[3];
void attach_planes(HdrContext *ctx, int width, int height, uint8_t value) {
    for (int f = 0; f < 3; ++f) {
        g_planes[f].assign((size_t)width * (height / 2 + 2) + 64, value);
        ctx->aligned[f].chroma = g_planes[f].data();
    }
}

int16_t &band_at(HdrContext *ctx, int f, int k, int y, int i) {
    return ctx->img_laplacian_pyramid[f][k].IC[y * ctx->chroma_stride[k] + i];
}

// A constant plane: neutral gives zero everywhere; 228 (signed 100) gives
// zero bands except the weight-7 last pair of a level with an odd pair count
// (1992 x 1024: level 2 has 249 pairs), where 100 - ((56 * 100 + 32) >> 6) = 12.
TEST(LaplacianChroma, ConstantPlanes) {
    HdrContext *ctx = shared_context();
    const int W = 1992, H = 1024;
    set_geometry(ctx, W, H);
    const int n = ctx->levels >> 1;
    ASSERT_EQ(n, 5);
    for (int value : {128, 228}) {
        attach_planes(ctx, W, H, (uint8_t)value);
        ImageLaplacianPyramidChroma(ctx, W, n, HE_IDX);
        int bad = 0;
        for (int k = 0; k <= n - 2; ++k) {
            const int pairs = (W >> 1) >> k, rows = (H >> 1) >> k;
            for (int y = 0; y < rows; ++y)
                for (int i = 0; i < 2 * pairs; ++i) {
                    const bool odd_edge = value == 228 && (pairs & 1) && i >= 2 * pairs - 2;
                    bad += band_at(ctx, HE_IDX, k, y, i) != (k == n - 2 ? value - 128 : odd_edge ? 12 : 0);
                }
        }
        EXPECT_EQ(bad, 0) << "value " << value;
    }
}

// n < 3: only the signed level-0 plane, in residual slot 0; 0 -> -128, 255 -> 127.
TEST(LaplacianChroma, ResidualOnlyBelowThreeLevels) {
    HdrContext *ctx = shared_context();
    const int W = 40, H = 12, cs = 48;
    set_geometry(ctx, W, H);
    ASSERT_EQ(ctx->chroma_stride[0], cs);
    attach_planes(ctx, W, H, 0);
    for (size_t i = 0; i < g_planes[LE_IDX].size(); ++i) g_planes[LE_IDX][i] = (i % 3) ? 255 : 0;
    for (int n : {1, 2}) {
        memset(&band_at(ctx, LE_IDX, 0, 0, 0), 0x55, (size_t)(H / 2) * cs * 2);
        ImageLaplacianPyramidChroma(ctx, W, n, LE_IDX);
        for (int y = 0; y < H / 2; ++y)
            for (int x = 0; x < cs; ++x)
                ASSERT_EQ(band_at(ctx, LE_IDX, 0, y, x), x < W ? ((y * W + x) % 3 ? 127 : -128) : 0x5555)
                    << "n " << n << " at " << x << "," << y;
    }
}

// Blend with weights 255 / 0 / 0: -128 -> (255 * -128 + 128) >> 8 = -127,
// 127 stays 127; three neutral pyramids at weights 85 stay 0.
TEST(ReconstructChroma, BlendSingleFrameAndNeutral) {
    HdrContext *ctx = shared_context();
    const int W = 64, H = 32, rows = H / 2, cs = 72;
    set_geometry(ctx, W, H);
    ASSERT_EQ(ctx->chroma_stride[0], cs);
    for (int neutral : {0, 1}) {
        for (int f = 0; f < 3; ++f) {
            memset(ctx->w_gaussian_pyramid[f][1], neutral ? 85 : f == 0 ? 255 : 0, (size_t)rows * ctx->row_stride[1]);
            for (int i = 0; i < rows * cs; ++i) band_at(ctx, f, 0, 0, i) = neutral ? 0 : (i & 1) ? 127 : -128;
        }
        ImageReconstructChroma(ctx, 2);
        for (int y = 0; y < rows; ++y)
            for (int i = 0; i < W; ++i)
                ASSERT_EQ(band_at(ctx, HE_IDX, 0, y, i), neutral ? 0 : (i & 1) ? 127 : -127) << neutral << " " << i;
    }
}

int blend1(int w0, int b0, int w1, int b1, int w2, int b2) { return (int16_t)((w0 * b0 + w1 * b1 + w2 * b2 + 128) >> 8); }

// Working width 1992: chroma level 2 has 249 pairs and pitch 504, the blend
// writes 256 pairs per row, so each row's last step (pairs 252..255, weights
// from the weight row's slack) lands on the next row's first four pairs,
// which that row then blends again.  Level 2 is only read by the collapse
// (n = 4), apart from its pads, so the double blend is visible afterwards.
TEST(ReconstructChroma, BlendSpillOntoNextRow) {
    HdrContext *ctx = shared_context();
    const int W = 1992, H = 1000, k = 2, n = 4;
    set_geometry(ctx, W, H);
    const int pairs = (W >> 1) >> k, rows = (H >> 1) >> k, cs = ctx->chroma_stride[k], ws = ctx->row_stride[k + 1];
    ASSERT_EQ(pairs, 249);
    ASSERT_EQ(cs, 504);
    ASSERT_EQ(ws, 256);
    std::vector<int16_t> b[3];
    std::vector<uint8_t> w[3];
    for (int f = 0; f < 3; ++f) {
        uint8_t *wp = ctx->w_gaussian_pyramid[f][k + 1];
        for (int i = 0; i < (rows + 1) * ws; ++i) wp[i] = (uint8_t)(1 + (i * 37 + f * 11) % 255);
        w[f].assign(wp, wp + (rows + 1) * ws);
        int16_t *bp = &band_at(ctx, f, k, 0, 0);
        for (int i = 0; i < (rows + 1) * cs; ++i) bp[i] = (int16_t)((i * 7919 + f * 13) % 511 - 255);
        b[f].assign(bp, bp + (rows + 1) * cs);
    }
    ImageReconstructChroma(ctx, n);
    int bad = 0;
    for (int y = 0; y < rows; ++y)
        for (int j = 0; j < 8; ++j) {
            const size_t at = (size_t)(y + 1) * cs + j;
            const int wy = y * ws + 252 + j / 2;
            int want = blend1(w[0][wy], b[0][at], w[1][wy], b[1][at], w[2][wy], b[2][at]);
            if (y + 1 < rows) {
                const int wz = (y + 1) * ws + j / 2;
                want = blend1(w[0][wz], want, w[1][wz], b[1][at], w[2][wz], b[2][at]);
            }
            bad += band_at(ctx, 0, k, 0, (int)at) != want;
        }
    EXPECT_EQ(bad, 0);
}

} // namespace
