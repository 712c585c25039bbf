// Real three-exposure photos through the whole merge, at their own size and
// scaled to the full 4160 x 3120 capacity.
#if defined(VARO_HAVE_IMAGEIO)
#include <dirent.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "imageio.h"
#include "merge_support.h"
#include "unit/test_support.h"

namespace {

std::vector<std::string> bracket_sets() {
    std::vector<std::string> sets;
    const std::string root = bracket_data_dir();
    if (root.empty()) return sets;
    if (DIR *d = opendir(root.c_str())) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.' && e->d_type == DT_DIR) sets.push_back(root + "/" + e->d_name);
        closedir(d);
    }
    std::sort(sets.begin(), sets.end());
    return sets;
}

// Share of pixels at the ends of the range over a rectangle of a plane.
double clipped_share(const uint8_t *p, int pitch, int x0, int y0, int w, int h) {
    size_t n = 0;
    for (int y = y0; y < y0 + h; ++y)
        for (int x = x0; x < x0 + w; ++x) n += p[(size_t)y * pitch + x] <= 2 || p[(size_t)y * pitch + x] >= 253;
    return (double)n / ((double)w * h);
}

TEST(RealBrackets, MergeAtNativeAndFullSize) {
    const std::vector<std::string> sets = bracket_sets();
    if (sets.empty()) GTEST_SKIP() << "bracket sets not present (../shared/data/brackets)";
    for (const std::string &dir : sets) {
        for (bool full : {false, true}) {
            varo_merge::Options opt;
            opt.bracket_dir = dir;
            if (full) opt.width = 4160, opt.height = 3120;
            varo_merge::Inputs inputs;
            std::string err;
            ASSERT_TRUE(varo_merge::load_inputs(opt, &inputs, &err)) << dir << ": " << err;
            varo_merge::Frames frames;
            varo_merge::make_frames(inputs, &frames);
            const std::vector<uint8_t> ae(frames.buf[AE_IDX]->luma(),
                                          frames.buf[AE_IDX]->luma() + (size_t)frames.width * frames.height);
            HdrInput in;
            varo_merge::fill_descriptor(&frames, inputs.units, &in);
            LogCapture log;
            const std::string what = dir + (full ? " at 4160x3120" : " native");
            ASSERT_EQ(hdrThreeFrameCore(shared_context(), &in), 0) << what;
            ASSERT_GE(in.out_width, 8) << what;
            ASSERT_LE(in.out_x + in.out_width, in.width) << what;
            ASSERT_LE(in.out_y + in.out_height, in.height) << what;
            const bool fell_back = log.contains("hdr motion over") || log.contains("hdr fusion skip");
            const uint8_t *out = frames.buf[HE_IDX]->luma();
            if (fell_back) {
                EXPECT_EQ(memcmp(out, ae.data(), ae.size()), 0) << what << ": fallback is the AE frame";
                continue;
            }
            // Fused: where the reference clips highlights or shadows, the
            // merge recovers part of them.
            const double before = clipped_share(ae.data(), in.width, 0, 0, in.width, in.height);
            const double after = clipped_share(out, in.width, 0, 0, in.out_width, in.out_height);
            printf("  %s: clipped %.2f%% -> %.2f%%\n", what.c_str(), 100 * before, 100 * after);
            if (before > 0.01) { EXPECT_LT(after, before) << what; }
        }
    }
}

// Shifts planted by cropping windows out of real frames: the side window
// starts (x, y) earlier in the scene, so side pixel (r, c) shows AE pixel
// (r - y, c - x), and the search must answer (x, y) exactly, up to +-62 on
// both axes, for the same frame and for a differently exposed one (sets shot
// from a fixed camera).
TEST(RealBrackets, PlantedShiftsAreRecovered) {
    const std::string root = bracket_data_dir();
    if (root.empty()) GTEST_SKIP() << "bracket sets not present (../shared/data/brackets)";
    const int shifts[][2] = {{0, 0}, {5, -3}, {-17, 29}, {40, -40}, {62, 0}, {0, -62},
                             {-62, 62}, {62, 62}, {-62, -62}, {33, -51}};
    const std::pair<const char *, int> pairs[] = {
        {"sculpture_garden_people", AE_IDX}, {"sculpture_garden_people", LE_IDX}, {"horse_stable", AE_IDX}};
    HdrContext *ctx = shared_context();
    for (const auto &pair : pairs) {
        varo_io::BracketSet set;
        std::string err;
        ASSERT_TRUE(varo_io::load_bracket_set(root + "/" + pair.first, &set, &err)) << err;
        const varo_io::Nv12Image side = varo_io::rgb_to_nv12(set.frame[pair.second]);
        const varo_io::Nv12Image ae = varo_io::rgb_to_nv12(set.frame[AE_IDX]);
        const int W = ae.width, ww = (W - 130) & ~63, wh = (ae.height - 130) & ~63;
        const int x0 = (W - ww) / 2, y0 = (ae.height - wh) / 2;
        for (const auto &d : shifts) {
            std::vector<uint8_t> fixed((size_t)ww * wh), moving((size_t)ww * wh);
            for (int r = 0; r < wh; ++r) {
                memcpy(&fixed[(size_t)r * ww], &side.luma[(size_t)(y0 - d[1] + r) * W + x0 - d[0]], ww);
                memcpy(&moving[(size_t)r * ww], &ae.luma[(size_t)(y0 + r) * W + x0], ww);
            }
            BitmapCalc(fixed.data(), ww, wh, &ctx->bitmap_pyramid[HE_IDX][0]);
            BitmapCalc(moving.data(), ww, wh, &ctx->bitmap_pyramid[AE_IDX][0]);
            HdrOffset found = {99, 99};
            OffsetCalc(&ctx->bitmap_pyramid[HE_IDX][0], &ctx->bitmap_pyramid[AE_IDX][0], &found);
            EXPECT_EQ(std::make_pair(found.x, found.y), std::make_pair(d[0], d[1]))
                << pair.first << " frame " << pair.second << " against AE";
        }
    }
}

} // namespace
#endif
