// OffsetCalc: planted shifts are recovered exactly, tie-breaks, the error
// count, logging.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "unit/registration_frames.h"
#include "unit/test_support.h"

namespace {

struct Shift {
    int x, y;
};
// Both signs on both axes up to the largest shift short of the search limit.
const Shift kShifts[] = {{0, 0}, {5, 3}, {-1, 1}, {62, 62}, {-62, -62}, {62, -62}, {-62, 62}, {17, -40}, {-33, 9}, {31, 32}};
// Real frames are small (level 5 is 8 to 20 pixels wide): a shift of nearly
// two level-5 pixels on both axes at once is beyond what their coarsest
// levels resolve, so each axis reaches +-62 separately.
const Shift kRealShifts[] = {{0, 0}, {5, 3}, {-1, 1}, {62, 0}, {0, -62}, {-62, 5}, {7, 62}, {-40, -45}, {31, 32}, {17, -40}};

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
// (x, y) earlier in the scene than the AE window.
template <size_t N>
void expect_planted_shifts(const Shift (&shifts)[N], const LumaFrame &scene_ae, const LumaFrame &scene_side,
                           double gain, double gamma, const std::string &what, int limit = 63) {
    const int w = scene_ae.width - 128, h = scene_ae.height - 128;
    const LumaFrame ae = crop_window(scene_ae, 64, 64, w, h);
    for (const Shift &s : shifts) {
        if (abs(s.x) > limit || abs(s.y) > limit) continue;
        uint32_t err = 0;
        const HdrOffset off = search(crop_window(scene_side, 64 - s.x, 64 - s.y, w, h, gain, gamma), ae, &err);
        EXPECT_EQ(off.x, s.x) << what << " planted (" << s.x << ", " << s.y << ")";
        EXPECT_EQ(off.y, s.y) << what << " planted (" << s.x << ", " << s.y << ")";
    }
}

TEST(OffsetCalc, RecoversPlantedShiftsInSyntheticFrames) {
    const LumaFrame scene = textured_frame(960 + 128, 720 + 128, 3);
    const double tones[][2] = {{1.0, 1.0}, {0.45, 1.0}, {1.0, 0.6}, {1.8, 1.3}}; // gain, gamma
    for (auto &t : tones)
        expect_planted_shifts(kShifts, scene, scene, t[0], t[1], "gain " + std::to_string(t[0]) + " gamma " + std::to_string(t[1]));
}

TEST(OffsetCalc, IdenticalPyramidsGiveZeroWithNoError) {
    const LumaFrame f = textured_frame(800, 600, 5);
    uint32_t err = 1;
    LogCapture log;
    const HdrOffset off = search(f, f, &err);
    EXPECT_EQ(off.x, 0);
    EXPECT_EQ(off.y, 0);
    EXPECT_EQ(err, 0u);
    int lines = 0;
    for (const LoggedLine &l : log.lines()) lines += l.func == "OffsetCalc";
    EXPECT_EQ(lines, 6) << "one line per level";
    EXPECT_TRUE(log.contains("offset: (0, 0) , min_err_bits 0\n"));
}

TEST(OffsetCalc, EmptyBitmapsTieToTheFirstCandidateAtEveryLevel) {
    // Under 86 rows nothing is analysed: every candidate has error 0 and the
    // earliest, (-1, -1), wins six times.
    const LumaFrame f = textured_frame(640, 85, 9);
    uint32_t err = 1;
    const HdrOffset off = search(f, f, &err);
    EXPECT_EQ(off.x, -63);
    EXPECT_EQ(off.y, -63);
    EXPECT_EQ(err, 0u);
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

TEST(OffsetCalc, RecoversPlantedShiftsInRealBrackets) {
    const std::string dir = bracket_data_dir();
    LumaFrame probe;
    if (dir.empty() || !load_luma(dir + "/horse_stable/2.png", &probe))
        GTEST_SKIP() << "bracket data not present, or no image I/O in this build";
    // memorial_church is 512 x 768: its level 5 is 8 x 14 pixels and its dark
    // interior leaves too few trusted pixels there to resolve a shift of 62.
    const struct {
        const char *name, *ae, *le, *he;
        int limit; // largest planted shift component checked
    } sets[] = {
        {"memorial_church", "memorial0065.png", "memorial0068.png", "memorial0062.png", 45},
        {"horse_stable", "2.png", "1.png", "3.png", 62},
        {"sculpture_garden_people", "3.png", "1.png", "5.png", 62},
    };
    for (const auto &set : sets) {
        LumaFrame ae, le, he;
        const std::string base = dir + "/" + set.name + "/";
        ASSERT_TRUE(load_luma(base + set.ae, &ae) && load_luma(base + set.le, &le) && load_luma(base + set.he, &he)) << base;
        expect_planted_shifts(kRealShifts, ae, ae, 1.0, 1.0, base + " AE/AE", set.limit);
        expect_planted_shifts(kRealShifts, ae, le, 1.0, 1.0, base + " LE/AE", set.limit);
        expect_planted_shifts(kRealShifts, ae, he, 1.0, 1.0, base + " HE/AE", set.limit);
    }
}

} // namespace
