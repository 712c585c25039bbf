// ImageNormalize on the shared context: the tone tables against their rules,
// the curve choice at every boundary, the chroma gain and the wrapping
// statistics.
#include <gtest/gtest.h>
#include <math.h>

#include "unit/test_support.h"

namespace {

// Entries where the rounded curves step (low: i^2 / 2N, high: 255 - (N - i)^2 / 2N).
TEST(ToneTables, EntriesAtTheirSteps) {
    const int spots[][2] = {{tmap_tab_low1[7], 0},    {tmap_tab_low1[8], 1},      {tmap_tab_high1[0], 223},
                            {tmap_tab_high1[2], 225}, {tmap_tab_high1[55], 254},  {tmap_tab_high1[56], 255},
                            {tmap_tab_high4[0], 127}, {tmap_tab_high4[1], 128},   {tmap_tab_high4[239], 254},
                            {tmap_tab_high4[240], 255}};
    for (auto &s : spots) EXPECT_EQ(s[0], s[1]);
}

// A fused frame of constant luma and chroma, with blocks set by each test.
struct Fused {
    HdrContext *ctx = shared_context();
    int W, H;
    std::vector<uint8_t> out_luma, out_chroma;
    Fused(int w, int h, int luma, int chroma) : W(w), H(h), out_luma((size_t)w * h, 0xEE), out_chroma((size_t)w * h / 2, 0xEE) {
        set_geometry(ctx, w, h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) Y(x, y) = (int16_t)luma, C(x, y / 2) = (int16_t)chroma;
    }
    int16_t &Y(int x, int y) { return ctx->img_laplacian_pyramid[0][0].IY[y * ctx->row_stride[0] + x]; }
    int16_t &C(int x, int y) { return ctx->img_laplacian_pyramid[0][0].IC[y * ctx->chroma_stride[0] + x]; }
    void run() { ImageNormalize(ctx, out_luma.data(), out_chroma.data(), W); }
    int y(int x, int yy) const { return out_luma[yy * W + x]; }
    int c(int x, int yy) const { return out_chroma[yy * W + x]; }
};

// Under- or over-range values all equal to `anchor` (spread 0) make L or U
// that value; the output at such a pixel names the chosen table.  Each row
// also states what the neighbouring choice would give, so it tells them apart.
TEST(ImageNormalize, CurveChoiceAtTheBoundaries) {
    const int cases[][3] = {
        {-1, tmap_tab_low1[31], 0},                  // L = -1: low1; none would clamp to 0
        {-15, tmap_tab_low1[17], tmap_tab_low2[49]}, {-16, tmap_tab_low2[48], tmap_tab_low1[16]},
        {-20, 8, tmap_tab_low1[12]},                 // low2, entry 44 = 8
        {-31, tmap_tab_low2[33], tmap_tab_low3[65]}, {-32, tmap_tab_low3[64], tmap_tab_low2[32]},
        {-47, tmap_tab_low3[49], tmap_tab_low4[81]}, {-48, tmap_tab_low4[80], tmap_tab_low3[48]},
        {256, tmap_tab_high1[32], 255},              // U = 256: high1; none keeps 255
        {270, tmap_tab_high1[46], tmap_tab_high2[78]}, {271, tmap_tab_high2[79], tmap_tab_high1[47]},
        {286, tmap_tab_high2[94], tmap_tab_high3[126]}, {287, tmap_tab_high3[127], tmap_tab_high2[95]},
        {300, 248, tmap_tab_high4[172]},             // high3, entry 140 = 248
        {302, tmap_tab_high3[142], tmap_tab_high4[174]}, {303, tmap_tab_high4[175], tmap_tab_high3[143]},
    };
    for (const auto &c : cases) {
        ASSERT_NE(c[1], c[2]) << c[0];
        // The rest of the frame lies inside [n, s - 1] and passes unchanged.
        const int rest = c[0] < 0 ? 200 : 100;
        Fused f(64, 8, rest, 0);
        for (int x = 16; x < 32; ++x) f.Y(x, 2) = (int16_t)c[0];
        f.run();
        EXPECT_EQ(f.y(20, 2), c[1]) << "anchor " << c[0];
        EXPECT_EQ(f.y(0, 0), rest) << "anchor " << c[0];
    }
}

// Nothing out of range: luma passes unchanged, 255 included, and chroma
// becomes d + 128 (gain 4096 per pixel, S = 16384), saturated.  A 2x2 block
// of 0 has zero divisors (y - L = 0): its gain is 0 and its chroma 128.
TEST(ImageNormalize, IdentityZeroDivisorAndChromaScale) {
    Fused f(32, 8, 0, 0);
    const int ds[] = {-200, -129, -128, -5, 0, 7, 127, 128, 200};
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 32; ++x) {
            f.Y(x, y) = (x < 2 && y < 2) ? 0 : (x == 5 && y == 5) ? 255 : (int16_t)(1 + (x * 8 + y * 3) % 255);
            if (y < 4) f.C(x, y) = (int16_t)ds[(x + y) % 9];
        }
    f.run();
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 32; ++x) {
            ASSERT_EQ(f.y(x, y), f.Y(x, y)) << x << "," << y;
            if (y < 4) { ASSERT_EQ(f.c(x, y), y == 0 && x < 2 ? 128 : std::min(255, std::max(0, ds[(x + y) % 9] + 128)))
                        << x << "," << y; }
        }
}

// The under-range squares wrap in their 32-bit partial sums: sixteen -32768
// in one block add 2^30 four times to each partial, leaving 0.  With eighteen
// -1 beside them: count 34, sum -524306, mean -15420, mean of squares 0, so
// the variance is negative, sqrt gives NaN, the spread converts to 0 and
// L = -15420 (unwrapped sums would give L = -51401).  L shows in the gain of
// the -1 pixels (curve low4, y = 32): g = (15419 << 12) / 15452 = 4087.
//
// A full frame of 32767 makes the over-range 32-bit partial sums wrap: each
// holds 3244800 * 32767 mod 2^32, the sum is -4207283200, the mean -324 and
// the spread 32765, so U = 71759 and with y = 255 < v the gain is
// ((U - v) << 12) / (U - y) on 16-bit differences, -26544 * 4096 / 5968
// = -18217, and chroma 100 saturates to 0.  Unwrapped sums would give
// U = 32767, a zero divisor and 128.
TEST(ImageNormalize, WrappedSumsAndSquares) {
    Fused f(64, 4, 100, 100);
    for (int x = 0; x < 32; ++x) f.Y(x, 0) = x < 16 ? -32768 : -1;
    f.Y(16, 1) = f.Y(17, 1) = -1;
    f.run();
    const int g = (15419 << 12) / 15452;
    EXPECT_EQ(f.y(16, 0), tmap_tab_low4[127]);
    EXPECT_EQ(f.c(16, 0), ((int16_t)((100 * 4 * g) >> 13) + 256) >> 1);
    EXPECT_EQ(f.c(16, 0), 227);

    Fused full(4160, 3120, 32767, 100);
    full.run();
    EXPECT_EQ(full.y(4159, 3119), 255);
    EXPECT_EQ(full.c(0, 0), 0);
    EXPECT_EQ(full.c(4159, 1559), 0);
}

} // namespace
