// Image I/O of the tools and the merge tool's argument parsing (host builds
// with libpng and libjpeg only).
#ifdef VARO_HAVE_IMAGEIO

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "imageio.h"
#include "merge_support.h"
#include "unit/test_support.h"

using namespace varo_io;

namespace {

TEST(ImageIo, PngRoundTripAndErrors) {
    const std::string p = "/tmp/varo_imageio_" + std::to_string(getpid()) + ".png";
    std::string err;
    RgbImage img = make_rgb(37, 21), back;
    for (size_t i = 0; i < img.rgb.size(); ++i) img.rgb[i] = (uint8_t)((i * 2654435761u + 5) >> 13);
    ASSERT_TRUE(write_png(p, img, &err)) << err;
    ASSERT_TRUE(load_image(p, &back, &err)) << err;
    EXPECT_EQ(back.width, 37);
    EXPECT_EQ(back.height, 21);
    EXPECT_EQ(back.rgb, img.rgb);
    // A truncated file and a non-image give messages, not crashes.
    ASSERT_EQ(truncate(p.c_str(), 60), 0);
    EXPECT_FALSE(load_image(p, &back, &err));
    EXPECT_NE(err.find("bad PNG"), std::string::npos) << err;
    FILE *f = fopen(p.c_str(), "wb");
    fputs("not an image at all", f);
    fclose(f);
    EXPECT_FALSE(load_image(p, &back, &err));
    unlink(p.c_str());
    EXPECT_FALSE(load_image(p, &back, &err));
}

TEST(ImageIo, Nv12KnownColours) {
    const uint8_t colours[][3] = {{0, 0, 0},   {255, 255, 255}, {128, 128, 128}, {37, 37, 37}, {255, 0, 0},
                                  {0, 255, 0}, {0, 0, 255},     {255, 255, 0},   {20, 90, 200}};
    for (const auto &c : colours) {
        RgbImage img = make_rgb(2, 2);
        for (int i = 0; i < 12; ++i) img.rgb[i] = c[i % 3];
        const Nv12Image n = rgb_to_nv12(img);
        EXPECT_NEAR(n.luma[3], 0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2], 1.0) << (int)c[0] << "," << (int)c[1];
        EXPECT_NEAR(n.chroma[0], std::min(255.0, 128 - 0.168736 * c[0] - 0.331264 * c[1] + 0.5 * c[2]), 1.0) << (int)c[0];
        EXPECT_NEAR(n.chroma[1], std::min(255.0, 128 + 0.5 * c[0] - 0.418688 * c[1] - 0.081312 * c[2]), 1.0) << (int)c[0];
        const RgbImage back = nv12_to_rgb(n);
        const bool grey = c[0] == c[1] && c[1] == c[2]; // exact both ways
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(back.rgb[k], img.rgb[k], grey ? 0 : 3) << (int)c[0] << "," << (int)c[1];
        if (grey) { EXPECT_EQ(std::vector<int>({n.luma[0], n.chroma[0], n.chroma[1]}), std::vector<int>({c[0], 128, 128})); }
    }
}

TEST(ImageIo, BracketSetLoadsWithSizeAndRoles) {
    const std::string root = bracket_data_dir();
    if (root.empty()) GTEST_SKIP() << "bracket data not present";
    BracketSet set;
    std::string err;
    ASSERT_TRUE(load_bracket_set(root + "/memorial_church", &set, &err)) << err;
    EXPECT_EQ(std::vector<uint32_t>({set.exposure_units[LE_IDX], set.exposure_units[AE_IDX], set.exposure_units[HE_IDX]}),
              std::vector<uint32_t>({250000, 2000000, 16000000}));
    double mean[3] = {};
    for (int f = 0; f < 3; ++f) {
        EXPECT_EQ(std::make_pair(set.frame[f].width, set.frame[f].height), std::make_pair(512, 768));
        for (uint8_t v : set.frame[f].rgb) mean[f] += v;
    }
    // Roles: brightness rises from LE to AE to HE.
    EXPECT_LT(mean[LE_IDX], mean[AE_IDX]);
    EXPECT_LT(mean[AE_IDX], mean[HE_IDX]);
}

TEST(MergeTool, ArgumentsAcceptedAndRejected) {
    const struct {
        std::vector<const char *> args;
        bool ok;
    } cases[] = {
        {{}, true},
        {{"--bracket", "d", "--size", "640x360", "--log", "--out-nv12", "o.nv12"}, true},
        {{"--he", "a", "--le", "b", "--ae", "c", "--exposure-units", "16,1,4"}, true},
        {{"--he", "a", "--le", "b", "--ae", "c"}, false}, // no exposures
        {{"--he", "a", "--le", "b"}, false},              // incomplete set
        {{"--he", "a", "--le", "b", "--ae", "c", "--bracket", "d", "--exposure-units", "1,2,3"}, false},
        {{"--exposure-units", "1,2"}, false}, {{"--exposure-units", "1,0,3"}, false}, {{"--exposure-units", "1,2,3x"}, false},
        {{"--exposure-units", "4294967296,1,1"}, false}, {{"--size", "641x360"}, false}, {{"--size", "4162x3120"}, false},
        {{"--size", "4160x3120"}, true}, {{"--size", "64x64"}, false}, {{"--size"}, false}, {{"--bogus"}, false},
    };
    for (const auto &c : cases) {
        std::vector<const char *> argv = {"varo_hdr_merge"};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        varo_merge::Options o;
        std::string err;
        EXPECT_EQ(varo_merge::parse_args((int)argv.size(), argv.data(), &o, &err), c.ok) << argv.back() << " " << err;
        EXPECT_EQ(err.empty(), c.ok) << argv.back();
    }
    varo_merge::Options o;
    std::string err;
    const char *argv[] = {"x", "--exposure-units", "40000,2500,10000", "--size", "320x240"};
    ASSERT_TRUE(varo_merge::parse_args(5, argv, &o, &err));
    EXPECT_EQ(std::vector<int64_t>({o.units[HE_IDX], o.units[LE_IDX], o.units[AE_IDX], o.width, o.height}),
              std::vector<int64_t>({40000, 2500, 10000, 320, 240}));
}

} // namespace

#endif // VARO_HAVE_IMAGEIO
