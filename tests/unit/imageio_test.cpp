// Image I/O of the tools (host builds with libpng and libjpeg only); loading
// the bracket sets is exercised by the real-bracket merges.
#ifdef VARO_HAVE_IMAGEIO

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include "imageio.h"

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

} // namespace

#endif // VARO_HAVE_IMAGEIO
