// BitmapCalc: crop geometry, cleared buffers, medians, tolerances, bit layout.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>

#include "synthetic_bracket.h"
#include "unit/test_support.h"

namespace {

HdrBitmapLevel *pyramid(int f) { return shared_context()->bitmap_pyramid[f]; }

// Fills every level buffer with garbage so that clearing is observable.
void scribble(HdrBitmapLevel *pyr) {
    for (int L = 0; L < 6; ++L) memset(pyr[L].buffer, 0xC3, pyr[L].buffer_bytes);
}

bool all_zero(const HdrBitmapLevel &lv) {
    return std::all_of(lv.buffer, lv.buffer + lv.buffer_bytes, [](uint8_t b) { return !b; });
}

uint32_t word(const HdrBitmapLevel &lv, int row, int pair, int which) {
    return lv.bits[((size_t)row * lv.stride_words + pair) * 2 + which];
}

TEST(BitmapCalc, LevelRecordsAndClearedBuffers) {
    // 85 rows: 3 * 85 < 256, no crop rows; 86 rows: the first with 64.  A
    // uniform frame (value >= 0) sets no bits whatever its value.
    const int cases[][5] = {{640, 480, 448, 320, -1}, {640, 85, 448, 0, -1},  {640, 86, 448, 64, -1},
                            {85, 200, 0, 128, -1},    {4160, 3120, 3072, 2304, -1}, {640, 480, 448, 320, 0},
                            {640, 480, 448, 320, 3},  {640, 480, 448, 320, 252}, {640, 480, 448, 320, 255}};
    for (const auto &c : cases) {
        LumaFrame f = textured_frame(c[0], c[1], 7);
        if (c[4] >= 0) f.pixels.assign(f.pixels.size(), (uint8_t)c[4]);
        HdrBitmapLevel *pyr = pyramid(HE_IDX);
        scribble(pyr);
        ASSERT_EQ(BitmapCalc(f.data(), c[0], c[1], pyr), 0);
        bool any_bit = false;
        for (int L = 0; L < 6; ++L) {
            const HdrBitmapLevel &lv = pyr[L];
            // Words per row, rows, pitch in words, bits after 64 rows of margin and a 16-byte guard.
            EXPECT_EQ(std::vector<int64_t>({lv.width_words, lv.rows, lv.stride_words, (uint8_t *)lv.bits - lv.buffer}),
                      std::vector<int64_t>({((c[2] >> L) >> 5) + 1, c[3] >> L, ((c[2] >> L) >> 5) + 5,
                                            64 * (((c[2] >> L) >> 5) + 5) * 8 + 16}))
                << c[0] << "x" << c[1] << " level " << L;
            any_bit = any_bit || !all_zero(lv);
        }
        EXPECT_EQ(any_bit, c[2] && c[3] && c[4] < 0) << c[0] << "x" << c[1] << " value " << c[4];
    }
}

// A frame of one value m with a few probe pixels: every level's median stays
// m.  Probes: median, pixel value, threshold bit, exclusion bit.
TEST(BitmapCalc, ThresholdAndToleranceAtTheEdges) {
    const int probes[][4] = {
        {4, 5, 1, 1},     {4, 4, 0, 0},     {4, 3, 0, 1}, // median <= 4: tolerance 1
        {5, 9, 1, 1},     {5, 8, 1, 0},     {5, 1, 0, 1},     {5, 2, 0, 0}, // tolerance 4
        {250, 254, 1, 1}, {250, 253, 1, 0}, {250, 246, 0, 1}, {250, 247, 0, 0},
        {251, 252, 1, 1}, {251, 250, 0, 1}, {251, 251, 0, 0}, // median >= 251: tolerance 1
        {0, 1, 1, 1},     {0, 0, 0, 0},     {255, 254, 0, 1}, {255, 255, 0, 0},
    };
    const int W = 640, H = 480, cx = 96, cy = 80; // crop 448 x 320 at (96, 80)
    for (const auto &p : probes) {
        LumaFrame f{W, H, std::vector<uint8_t>((size_t)W * H, (uint8_t)p[0])};
        // Crop pixel (row, col) -> level L pixel (row >> L, col >> L).
        const int spots[][2] = {{0, 0}, {0, 31}, {0, 32}, {64, 448 - 64}, {319, 447}};
        for (auto &s : spots) f.at(cx + s[1], cy + s[0]) = (uint8_t)p[1];
        HdrBitmapLevel *pyr = pyramid(AE_IDX);
        BitmapCalc(f.data(), W, H, pyr);
        SCOPED_TRACE(testing::Message() << "median " << p[0] << " value " << p[1]);
        const uint32_t t = (uint32_t)p[2], e = (uint32_t)p[3];
        EXPECT_EQ(word(pyr[0], 0, 0, 0), t << 31 | t);
        EXPECT_EQ(word(pyr[0], 0, 0, 1), e << 31 | e);
        EXPECT_EQ(word(pyr[0], 0, 1, 0), t << 31);   // column 32: most significant bit of pair 1
        EXPECT_EQ(word(pyr[0], 319, 13, 0), t);      // column 447: bit 0 of pair 13
        // Crop (64, 384) is on the grid of every level: (64 >> L, 384 >> L).
        for (int L = 1; L < 6; ++L) {
            const int r = 64 >> L, c = 384 >> L;
            EXPECT_EQ(word(pyr[L], r, c >> 5, 0), t << (31 - (c & 31))) << "level " << L;
            EXPECT_EQ(word(pyr[L], r, c >> 5, 1), e << (31 - (c & 31))) << "level " << L;
        }
        // Level 1 samples even columns: 0 and 32 land in bits 31 and 15, 31 is skipped.
        EXPECT_EQ(word(pyr[1], 0, 0, 0), t << 31 | t << 15);
    }
}

TEST(BitmapCalc, MedianIsTheFirstBinReachingHalf) {
    // Level 0 of a 448 x 320 crop has 143360 pixels, half = 71680.  With
    // exactly half the crop at 10 and half at 200 the median is 10; one more
    // pixel at 200 moves it to 200.
    const int W = 640, H = 480, cx = 96, cy = 80, cw = 448, ch = 320;
    for (int extra : {0, 1}) {
        LumaFrame f{W, H, std::vector<uint8_t>((size_t)W * H, 10)};
        int placed = 0;
        for (int y = 0; y < ch; ++y)
            for (int x = 0; x < cw; ++x)
                if (((x + y) & 1) && placed < cw * ch / 2 + extra - 1) {
                    f.at(cx + x, cy + y) = 200;
                    ++placed;
                }
        f.at(cx + 2, cy + 0) = 200; // crop (0, 2): counts at levels 0 and 1
        HdrBitmapLevel *pyr = pyramid(HE_IDX);
        BitmapCalc(f.data(), W, H, pyr);
        // Pixel value 200 is above a median of 10 and equal to a median of 200.
        EXPECT_EQ(word(pyr[0], 0, 0, 0) >> 29 & 1, extra ? 0u : 1u) << "extra " << extra;
    }
}

} // namespace
