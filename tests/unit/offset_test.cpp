// OffsetCalc: planted shifts are recovered exactly, whatever the side
// frame's tone; the error counts only pixels trusted in both frames.
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include "synthetic_bracket.h"
#include "unit/test_support.h"

namespace {

// Both signs on both axes up to the largest shift short of the search limit.
const int kShifts[][2] = {{0, 0}, {5, 3}, {-1, 1}, {62, 62}, {-62, -62}, {62, -62}, {-62, 62}, {17, -40}, {-33, 9}, {31, 32}};

// The window of `src` with its top-left corner at (x, y), passed through a
// tone curve: out = 255 * (in / 255)^gamma * gain, saturated.
LumaFrame crop_window(const LumaFrame &src, int x, int y, int width, int height, double gain = 1, double gamma = 1) {
    LumaFrame f{width, height, std::vector<uint8_t>((size_t)width * height)};
    uint8_t lut[256];
    for (int i = 0; i < 256; ++i) lut[i] = (uint8_t)std::min(255.0, 255.0 * pow(i / 255.0, gamma) * gain + 0.5);
    for (int r = 0; r < height; ++r)
        for (int c = 0; c < width; ++c) f.pixels[(size_t)r * width + c] = lut[src.pixels[(size_t)(y + r) * src.width + x + c]];
    return f;
}

// Side frame as the fixed pyramid, AE as the moving one, as in a merge.
HdrOffset search(const LumaFrame &side, const LumaFrame &ae, uint32_t *err) {
    HdrContext *ctx = shared_context();
    BitmapCalc(side.pixels.data(), side.width, side.height, ctx->bitmap_pyramid[LE_IDX]);
    BitmapCalc(ae.pixels.data(), ae.width, ae.height, ctx->bitmap_pyramid[AE_IDX]);
    HdrOffset off = {1000, 1000};
    *err = OffsetCalc(ctx->bitmap_pyramid[LE_IDX], ctx->bitmap_pyramid[AE_IDX], &off);
    return off;
}

// Side pixel (r, c) shows AE pixel (r - y, c - x): the side window starts
// (x, y) earlier in the scene than the AE window.  The side frame is toned
// differently: the bitmaps compare each frame against its own median.
TEST(OffsetCalc, RecoversPlantedShifts) {
    const LumaFrame scene = textured_frame(960 + 128, 720 + 128, 3), ae = crop_window(scene, 64, 64, 960, 720);
    const double tones[][2] = {{1.0, 1.0}, {0.45, 1.0}, {1.0, 0.6}, {1.8, 1.3}}; // gain, gamma
    for (auto &t : tones)
        for (const auto &s : kShifts) {
            uint32_t err = 0;
            const HdrOffset off = search(crop_window(scene, 64 - s[0], 64 - s[1], 960, 720, t[0], t[1]), ae, &err);
            EXPECT_EQ(std::make_pair(off.x, off.y), std::make_pair(s[0], s[1])) << "gain " << t[0] << " gamma " << t[1];
        }
}

TEST(OffsetCalc, ErrorCountsOnlyPixelsTrustedInBothFrames) {
    // Two different textures: the level-0 error is the number of pixels where
    // thresholds differ and both exclusion bits are set.  Flattening the side
    // frame's crop to its median clears its exclusion bits, so the error drops to 0.
    const LumaFrame a = textured_frame(640, 480, 1), b = textured_frame(640, 480, 2);
    uint32_t err = 0;
    search(a, b, &err);
    EXPECT_GT(err, 1000u);
    LumaFrame flat = a;
    flat.pixels.assign(flat.pixels.size(), 128);
    search(flat, b, &err);
    EXPECT_EQ(err, 0u);
}

} // namespace
