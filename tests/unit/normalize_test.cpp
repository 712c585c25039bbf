// ImageNormalize on the shared context: the tone tables against their rules,
// the curve choice at every boundary, the chroma gain, the wrapping
// statistics, and identical output from every kernel variant.
#include <gtest/gtest.h>
#include <math.h>

#include "unit/chroma_stage_util.h"

namespace {

TEST(ToneTables, EntriesFollowTheirRules) {
    const uint8_t *low[4] = {tmap_tab_low1, tmap_tab_low2, tmap_tab_low3, tmap_tab_low4};
    const uint8_t *high[4] = {tmap_tab_high1, tmap_tab_high2, tmap_tab_high3, tmap_tab_high4};
    for (int k = 1; k <= 4; ++k) {
        const int N = 64 * k;
        for (int i = 0; i < N; ++i) {
            ASSERT_EQ(low[k - 1][i], (int)floor((double)i * i / (2 * N) + 0.5)) << "low" << k << " " << i;
            ASSERT_EQ(high[k - 1][i], (int)floor(255 - (double)(N - i) * (N - i) / (2 * N) + 0.5))
                << "high" << k << " " << i;
        }
    }
    EXPECT_EQ(tmap_tab_low1[7], 0);
    EXPECT_EQ(tmap_tab_low1[8], 1);
    EXPECT_EQ(tmap_tab_high1[0], 223);
    EXPECT_EQ(tmap_tab_high1[2], 225);
    EXPECT_EQ(tmap_tab_high1[55], 254);
    EXPECT_EQ(tmap_tab_high1[56], 255);
    EXPECT_EQ(tmap_tab_high4[0], 127);
    EXPECT_EQ(tmap_tab_high4[1], 128);
    EXPECT_EQ(tmap_tab_high4[239], 254);
    EXPECT_EQ(tmap_tab_high4[240], 255);
}

// A fused frame of constant luma and chroma, with blocks set by each test.
struct Fused {
    HdrContext *ctx;
    int W, H;
    std::vector<uint8_t> out_luma, out_chroma;
    Fused(int w, int h, int luma, int chroma) : ctx(shared_context()), W(w), H(h) {
        set_geometry(ctx, w, h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) Y(x, y) = (int16_t)luma;
        for (int y = 0; y < h / 2; ++y)
            for (int x = 0; x < w; ++x) C(x, y) = (int16_t)chroma;
        out_luma.assign((size_t)w * h, 0xEE);
        out_chroma.assign((size_t)w * h / 2, 0xEE);
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
    struct Case {
        int anchor, want, other;
    } cases[] = {
        {-1, tmap_tab_low1[31], 0},                   // L = -1: low1; none would clamp to 0
        {-15, tmap_tab_low1[17], tmap_tab_low2[49]},  // -15: low1
        {-16, tmap_tab_low2[48], tmap_tab_low1[16]},  // -16: low2
        {-20, 8, tmap_tab_low1[12]},                  // -20: low2, entry 44 = 8
        {-31, tmap_tab_low2[33], tmap_tab_low3[65]},  // -31: low2
        {-32, tmap_tab_low3[64], tmap_tab_low2[32]},  // -32: low3
        {-47, tmap_tab_low3[49], tmap_tab_low4[81]},  // -47: low3
        {-48, tmap_tab_low4[80], tmap_tab_low3[48]},  // -48: low4
        {256, tmap_tab_high1[32], 255},               // U = 256: high1; none keeps 255
        {270, tmap_tab_high1[46], tmap_tab_high2[78]},
        {271, tmap_tab_high2[79], tmap_tab_high1[47]},
        {286, tmap_tab_high2[94], tmap_tab_high3[126]},
        {287, tmap_tab_high3[127], tmap_tab_high2[95]},
        {300, 248, tmap_tab_high4[172]}, // high3, entry 140 = 248
        {302, tmap_tab_high3[142], tmap_tab_high4[174]},
        {303, tmap_tab_high4[175], tmap_tab_high3[143]},
    };
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        for (const Case &c : cases) {
            ASSERT_NE(c.want, c.other) << c.anchor;
            // The rest of the frame lies inside [n, s - 1] and passes unchanged.
            const int rest = c.anchor < 0 ? 200 : 100;
            Fused f(64, 8, rest, 0);
            for (int x = 16; x < 32; ++x) f.Y(x, 2) = (int16_t)c.anchor;
            f.run();
            EXPECT_EQ(f.y(20, 2), c.want) << v.name << " anchor " << c.anchor;
            EXPECT_EQ(f.y(0, 0), rest) << v.name << " anchor " << c.anchor;
        }
    }
}

// Nothing out of range: luma passes unchanged, 255 included, and chroma
// becomes d + 128 (gain 4096 per pixel, S = 16384), saturated.  A 2x2 block
// of 0 has zero divisors (y - L = 0): its gain is 0 and its chroma 128.
TEST(ImageNormalize, IdentityZeroDivisorAndChromaScale) {
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        Fused f(32, 8, 0, 0);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 32; ++x) f.Y(x, y) = (x < 2 && y < 2) ? 0 : (int16_t)(1 + (x * 8 + y * 3) % 255);
        f.Y(5, 5) = 255;
        const int ds[] = {-200, -129, -128, -5, 0, 7, 127, 128, 200};
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 32; ++x) f.C(x, y) = (int16_t)ds[(x + y) % 9];
        f.run();
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 32; ++x) ASSERT_EQ(f.y(x, y), f.Y(x, y)) << v.name << " " << x << "," << y;
        EXPECT_EQ(f.c(0, 0), 128) << v.name;
        EXPECT_EQ(f.c(1, 0), 128) << v.name;
        for (int y = 0; y < 4; ++y)
            for (int x = (y == 0 ? 2 : 0); x < 32; ++x) {
                const int d = ds[(x + y) % 9];
                ASSERT_EQ(f.c(x, y), d + 128 < 0 ? 0 : d + 128 > 255 ? 255 : d + 128) << v.name << " " << x << "," << y;
            }
    }
}

// The under-range squares wrap in their 32-bit partial sums: sixteen -32768
// in one block add 2^30 four times to each partial, leaving 0.  With eighteen
// -1 beside them: count 34, sum -524306, mean -15420, mean of squares 0, so
// the variance is negative, sqrt gives NaN, the spread converts to 0 and
// L = -15420 (unwrapped sums would give L = -51401).  L shows in the gain of
// the -1 pixels (curve low4, y = 32): g = (15419 << 12) / 15452 = 4087.
TEST(ImageNormalize, WrappedSquaresGiveNanSpread) {
    for (const DspVariant &v : dsp_variants()) {
        ScopedDsp use(v.table);
        Fused f(64, 4, 100, 100);
        for (int x = 0; x < 16; ++x) f.Y(x, 0) = -32768;
        for (int x = 16; x < 32; ++x) f.Y(x, 0) = -1;
        f.Y(16, 1) = f.Y(17, 1) = -1;
        f.run();
        const int g = (15419 << 12) / 15452, S = 4 * g;
        EXPECT_EQ(f.y(16, 0), tmap_tab_low4[127]) << v.name;
        EXPECT_EQ(f.c(16, 0), ((int16_t)((100 * S) >> 13) + 256) >> 1) << v.name;
        EXPECT_EQ(f.c(16, 0), 227) << v.name;
    }
}

// A full frame of 32767 makes the over-range 32-bit partial sums wrap: each
// holds 3244800 * 32767 mod 2^32, the sum is -4207283200, the mean -324 and
// the spread 32765, so U = 71759 and with y = 255 < v the gain is
// ((U - v) << 12) / (U - y) on 16-bit differences, -26544 * 4096 / 5968
// = -18217, and chroma 100 saturates to 0.  Unwrapped sums would
// give U = 32767, a zero divisor and 128.  A random frame follows; every
// variant must match the reference byte for byte.
TEST(ImageNormalize, VariantsAgreeOnFullFrames) {
    const std::vector<DspVariant> variants = dsp_variants();
    for (int pattern = 0; pattern < 2; ++pattern) {
        std::vector<uint8_t> first_l, first_c;
        for (const DspVariant &v : variants) {
            ScopedDsp use(v.table);
            Fused f(4160, 3120, 32767, 100);
            uint32_t s = 42;
            if (pattern == 1)
                for (int y = 0; y < 3120; ++y)
                    for (int x = 0; x < 4160; ++x) {
                        s ^= s << 13, s ^= s >> 17, s ^= s << 5;
                        f.Y(x, y) = (int16_t)((int)(s % 900) - 300);
                        if (y < 1560) f.C(x, y) = (int16_t)((int)(s >> 20) % 401 - 200);
                    }
            f.run();
            if (pattern == 0) {
                EXPECT_EQ(f.y(4159, 3119), 255) << v.name;
                EXPECT_EQ(f.c(0, 0), 0) << v.name;
                EXPECT_EQ(f.c(4159, 1559), 0) << v.name;
            }
            if (first_l.empty()) {
                first_l = f.out_luma, first_c = f.out_chroma;
            } else {
                EXPECT_TRUE(f.out_luma == first_l) << v.name << " pattern " << pattern;
                EXPECT_TRUE(f.out_chroma == first_c) << v.name << " pattern " << pattern;
            }
        }
    }
}

} // namespace
