// Image I/O of the tools and the merge tool's plumbing (host builds with
// libpng and libjpeg only).
#ifdef VARO_HAVE_IMAGEIO

#include <gtest/gtest.h>
#include <math.h>
#include <png.h>
#include <stdio.h>
#include <unistd.h>

#include "imageio.h"
#include "merge_support.h"
#include "unit/test_support.h"

using namespace varo_io;

namespace {

std::string temp_path(const char *name) {
    return "/tmp/varo_imageio_" + std::to_string(getpid()) + "_" + name;
}

RgbImage pattern(int w, int h, uint32_t seed) {
    RgbImage img = make_rgb(w, h);
    for (size_t i = 0; i < img.rgb.size(); ++i) img.rgb[i] = (uint8_t)((i * 2654435761u + seed) >> 13);
    return img;
}

// Writes a 3x2 PNG of the given type through libpng directly.
bool write_raw_png(const std::string &path, int color, int depth, const std::vector<uint8_t> &rows,
                   const std::vector<png_color> &palette) {
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, 3, 2, depth, color, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (!palette.empty()) png_set_PLTE(png, info, palette.data(), (int)palette.size());
    png_write_info(png, info);
    const size_t row_bytes = rows.size() / 2;
    for (int y = 0; y < 2; ++y) png_write_row(png, rows.data() + y * row_bytes);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    fclose(f);
    return true;
}

TEST(ImageIo, PngRoundTripAndErrors) {
    const std::string p = temp_path("rt.png");
    std::string err;
    const RgbImage img = pattern(37, 21, 5);
    ASSERT_TRUE(write_png(p, img, &err)) << err;
    RgbImage back;
    ASSERT_TRUE(load_image(p, &back, &err)) << err;
    EXPECT_EQ(back.width, 37);
    EXPECT_EQ(back.height, 21);
    EXPECT_EQ(back.rgb, img.rgb);

    // A truncated file and a non-image give messages, not crashes.
    FILE *f = fopen(p.c_str(), "r+b");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(ftruncate(fileno(f), 60), 0);
    fclose(f);
    EXPECT_FALSE(load_image(p, &back, &err));
    EXPECT_NE(err.find("bad PNG"), std::string::npos) << err;
    f = fopen(p.c_str(), "wb");
    fputs("not an image at all", f);
    fclose(f);
    EXPECT_FALSE(load_image(p, &back, &err));
    EXPECT_FALSE(load_image(temp_path("missing.png"), &back, &err));
    unlink(p.c_str());
}

TEST(ImageIo, PngFormatsDecodeToRgb) {
    const std::vector<png_color> pal = {{10, 20, 30}, {200, 100, 50}, {0, 255, 0}};
    struct Case {
        const char *name;
        int color, depth;
        std::vector<uint8_t> rows; // 2 rows of 3 pixels
        std::vector<uint8_t> rgb;  // expected first and last pixel
    } cases[] = {
        {"grey8", PNG_COLOR_TYPE_GRAY, 8, {0, 100, 255, 1, 2, 3}, {0, 0, 0, 3, 3, 3}},
        {"grey16", PNG_COLOR_TYPE_GRAY, 16, {0x80, 0x7f, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff},
         {0x80, 0x80, 0x80, 255, 255, 255}},
        {"grey2", PNG_COLOR_TYPE_GRAY, 2, {0x6c, 0xc0}, {85, 85, 85, 0, 0, 0}},
        {"grey_alpha", PNG_COLOR_TYPE_GRAY_ALPHA, 8, {50, 0, 0, 0, 0, 0, 0, 0, 0, 0, 77, 255},
         {50, 50, 50, 77, 77, 77}},
        {"rgba16", PNG_COLOR_TYPE_RGB_ALPHA, 16,
         std::vector<uint8_t>(48, 0x00), {0, 0, 0, 0, 0, 0}},
        {"palette", PNG_COLOR_TYPE_PALETTE, 8, {1, 0, 0, 0, 0, 2}, {200, 100, 50, 0, 255, 0}},
    };
    // rgba16: first pixel R = 0x1234 -> 0x12 after rounding, last B = 0xff00 -> 0xfe.
    cases[4].rows[0] = 0x12, cases[4].rows[1] = 0x34, cases[4].rows[47 - 3] = 0xff;
    cases[4].rows[47 - 2] = 0x00;
    cases[4].rgb = {0x12, 0, 0, 0, 0, 0xfe};
    const std::string p = temp_path("fmt.png");
    for (const Case &c : cases) {
        ASSERT_TRUE(write_raw_png(p, c.color, c.depth, c.rows, c.color == PNG_COLOR_TYPE_PALETTE ? pal : std::vector<png_color>()));
        RgbImage img;
        std::string err;
        ASSERT_TRUE(load_png(p, &img, &err)) << c.name << ": " << err;
        ASSERT_EQ(img.width * img.height, 6) << c.name;
        EXPECT_EQ(std::vector<uint8_t>(img.rgb.begin(), img.rgb.begin() + 3),
                  std::vector<uint8_t>(c.rgb.begin(), c.rgb.begin() + 3)) << c.name;
        EXPECT_EQ(std::vector<uint8_t>(img.rgb.end() - 3, img.rgb.end()),
                  std::vector<uint8_t>(c.rgb.begin() + 3, c.rgb.end())) << c.name;
    }
    unlink(p.c_str());
}

TEST(ImageIo, Nv12KnownColours) {
    struct Case {
        uint8_t r, g, b;
    } cases[] = {{0, 0, 0},   {255, 255, 255}, {128, 128, 128}, {37, 37, 37}, {255, 0, 0},
                 {0, 255, 0}, {0, 0, 255},     {255, 255, 0},   {20, 90, 200}};
    for (const Case &c : cases) {
        RgbImage img = make_rgb(2, 2);
        for (int i = 0; i < 4; ++i) img.rgb[3 * i] = c.r, img.rgb[3 * i + 1] = c.g, img.rgb[3 * i + 2] = c.b;
        const Nv12Image n = rgb_to_nv12(img);
        const double y = 0.299 * c.r + 0.587 * c.g + 0.114 * c.b;
        const double cb = 128 - 0.168736 * c.r - 0.331264 * c.g + 0.5 * c.b;
        const double cr = 128 + 0.5 * c.r - 0.418688 * c.g - 0.081312 * c.b;
        EXPECT_NEAR(n.luma[3], y, 1.0) << (int)c.r << "," << (int)c.g << "," << (int)c.b;
        EXPECT_NEAR(n.chroma[0], cb > 255 ? 255 : cb, 1.0) << (int)c.r << "," << (int)c.g << "," << (int)c.b;
        EXPECT_NEAR(n.chroma[1], cr > 255 ? 255 : cr, 1.0) << (int)c.r << "," << (int)c.g << "," << (int)c.b;
        if (c.r == c.g && c.g == c.b) { // grey is exact both ways
            EXPECT_EQ(n.luma[0], c.r);
            EXPECT_EQ(n.chroma[0], 128);
            EXPECT_EQ(n.chroma[1], 128);
            EXPECT_EQ(nv12_to_rgb(n).rgb, img.rgb);
        } else {
            const RgbImage back = nv12_to_rgb(n);
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(back.rgb[k], img.rgb[k], 3) << (int)c.r << "," << (int)c.g << "," << (int)c.b;
        }
    }
    // Chroma is the 2x2 block mean: red over blue gives their average, per block.
    RgbImage two = make_rgb(5, 3); // odd: cropped to 4x2
    for (int x = 0; x < 5; ++x) two.rgb[3 * x] = 255, two.rgb[3 * (5 + x) + 2] = 255;
    const Nv12Image n = rgb_to_nv12(two);
    ASSERT_EQ(n.width, 4);
    ASSERT_EQ(n.height, 2);
    ASSERT_EQ(n.chroma.size(), 4u);
    EXPECT_EQ(n.chroma[0], n.chroma[2]);
    EXPECT_NEAR(n.chroma[0], 128 + (-0.168736 * 255 + 0.5 * 255) / 2, 1.0);
    EXPECT_NEAR(n.chroma[1], 128 + (0.5 * 255 - 0.081312 * 255) / 2, 1.0);
    EXPECT_NE(n.luma[0], n.luma[4]); // rows keep their own luma
}

TEST(ImageIo, CropResizeRotateGeometry) {
    const RgbImage img = pattern(40, 30, 9);
    // Odd origin rounds down to even.
    const RgbImage c = crop(img, 5, 3, 10, 7);
    ASSERT_EQ(c.width, 10);
    ASSERT_EQ(c.height, 7);
    EXPECT_EQ(c.rgb[0], img.rgb[(2 * 40 + 4) * 3]);
    EXPECT_EQ(c.rgb.back(), img.rgb[((2 + 6) * 40 + 4 + 9) * 3 + 2]);
    EXPECT_TRUE(crop(img, 32, 0, 10, 5).rgb.empty());
    EXPECT_TRUE(crop(img, 0, 0, 40, 31).rgb.empty());

    // Halving is the rounded 2x2 mean; upsampling a constant stays constant.
    const RgbImage half = resize_bilinear(img, 20, 15);
    ASSERT_EQ(half.rgb.size(), 20u * 15 * 3);
    for (int y = 0; y < 15; ++y)
        for (int x = 0; x < 20; ++x)
            for (int k = 0; k < 3; ++k) {
                auto at = [&](int xx, int yy) { return (int)img.rgb[(yy * 40 + xx) * 3 + k]; };
                const int sum = at(2 * x, 2 * y) + at(2 * x + 1, 2 * y) + at(2 * x, 2 * y + 1) + at(2 * x + 1, 2 * y + 1);
                ASSERT_EQ(half.rgb[(y * 20 + x) * 3 + k], (sum + 2) / 4) << x << "," << y;
            }
    RgbImage flat = make_rgb(7, 5);
    std::fill(flat.rgb.begin(), flat.rgb.end(), 201);
    const RgbImage up = resize_bilinear(flat, 33, 19);
    ASSERT_EQ(up.width, 33);
    EXPECT_EQ(*std::min_element(up.rgb.begin(), up.rgb.end()), 201);
    EXPECT_EQ(*std::max_element(up.rgb.begin(), up.rgb.end()), 201);

    const RgbImage cw = rotate90(img, true);
    ASSERT_EQ(cw.width, 30);
    ASSERT_EQ(cw.height, 40);
    EXPECT_EQ(cw.rgb[(0 * 30 + 29) * 3], img.rgb[0]); // top-left goes top-right
    EXPECT_EQ(rotate90(cw, false).rgb, img.rgb);
}

TEST(ImageIo, RawNv12FileSizeMustMatch) {
    Nv12Image n = make_nv12(8, 6);
    for (size_t i = 0; i < n.luma.size(); ++i) n.luma[i] = (uint8_t)i;
    for (size_t i = 0; i < n.chroma.size(); ++i) n.chroma[i] = (uint8_t)(200 + i);
    const std::string p = temp_path("raw.nv12");
    std::string err;
    ASSERT_TRUE(write_nv12(p, n, &err)) << err;
    Nv12Image back;
    ASSERT_TRUE(read_nv12(p, 8, 6, &back, &err)) << err;
    EXPECT_EQ(back.luma, n.luma);
    EXPECT_EQ(back.chroma, n.chroma);
    EXPECT_FALSE(read_nv12(p, 8, 8, &back, &err)); // too short
    EXPECT_FALSE(read_nv12(p, 8, 4, &back, &err)); // too long
    EXPECT_FALSE(read_nv12(p, 7, 6, &back, &err)); // odd
    unlink(p.c_str());
}

TEST(ImageIo, BayerDemosaicSiteColours) {
    // A flat scene: every red site 200, green 100, blue 40.  Linear curve, unit
    // gains, no black level: every output pixel, borders included, is that colour.
    const int w = 10, h = 8;
    std::vector<uint8_t> m((size_t)w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) m[y * w + x] = !(y & 1) && !(x & 1) ? 200 : (y & 1) && (x & 1) ? 40 : 100;
    BayerParams p;
    RgbImage out = develop_bayer(m, w, h, p);
    for (int i = 0; i < w * h; ++i) {
        ASSERT_EQ(out.rgb[3 * i], 200) << i;
        ASSERT_EQ(out.rgb[3 * i + 1], 100) << i;
        ASSERT_EQ(out.rgb[3 * i + 2], 40) << i;
    }
    // Black level, gains (given as B, G, R) and the sRGB curve.
    p.black_level = 40;
    p.wb_gains_bgr[0] = 2.0;
    p.wb_gains_bgr[2] = 0.5;
    p.srgb = true;
    out = develop_bayer(m, w, h, p);
    auto srgb = [](double v) { return 255 * (v <= 0.0031308 ? 12.92 * v : 1.055 * pow(v, 1 / 2.4) - 0.055); };
    EXPECT_NEAR(out.rgb[0], srgb(160.0 / 215 * 0.5), 0.51);
    EXPECT_NEAR(out.rgb[1], srgb(60.0 / 215), 0.51);
    EXPECT_EQ(out.rgb[2], 0); // at the black level
}

TEST(ImageIo, SyntheticBracketExposuresAndShift) {
    const SyntheticBracket s = synthetic_bracket(640, 360);
    const SyntheticBracket again = synthetic_bracket(640, 360);
    double mean[3];
    for (int f = 0; f < 3; ++f) {
        ASSERT_EQ(s.frame[f].width, 640);
        ASSERT_EQ(s.frame[f].height, 360);
        EXPECT_EQ(s.frame[f].rgb, again.frame[f].rgb);
        double sum = 0;
        for (uint8_t v : s.frame[f].rgb) sum += v;
        mean[f] = sum / s.frame[f].rgb.size();
    }
    EXPECT_LT(mean[LE_IDX] + 20, mean[AE_IDX]);
    EXPECT_LT(mean[AE_IDX] + 20, mean[HE_IDX]);
    EXPECT_EQ(s.exposure_units[AE_IDX], 4 * s.exposure_units[LE_IDX]);
    EXPECT_EQ(s.exposure_units[HE_IDX], 16 * s.exposure_units[LE_IDX]);

    // Each side frame matches AE best at its declared shift (normalised
    // correlation of green over a textured window).
    auto g = [&](int f, int x, int y) { return (double)s.frame[f].rgb[(y * 640 + x) * 3 + 1]; };
    for (int f : {HE_IDX, LE_IDX}) {
        int best_x = 99, best_y = 99;
        double best = -2;
        for (int sy = -6; sy <= 6; ++sy)
            for (int sx = -6; sx <= 6; ++sx) {
                double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0, n = 0;
                for (int y = 120; y < 250; y += 1)
                    for (int x = 100; x < 540; x += 2) {
                        const double a = g(f, x, y), b = g(AE_IDX, x + sx, y + sy);
                        sa += a, sb += b, saa += a * a, sbb += b * b, sab += a * b, n += 1;
                    }
                const double cov = sab - sa * sb / n;
                const double ncc = cov / sqrt((saa - sa * sa / n) * (sbb - sb * sb / n));
                if (ncc > best) best = ncc, best_x = sx, best_y = sy;
            }
        int dx, dy;
        synthetic_shift(f, &dx, &dy);
        EXPECT_EQ(best_x, dx) << f;
        EXPECT_EQ(best_y, dy) << f;
        EXPECT_TRUE(dx != 0 || dy != 0);
    }
}

TEST(ImageIo, BracketSetsLoadWithSizeAndRoles) {
    const std::string root = bracket_data_dir();
    if (root.empty()) GTEST_SKIP() << "bracket data not present";
    struct Case {
        const char *set;
        int w, h;
        uint32_t le, ae, he;
    } cases[] = {
        {"horse_stable", 1024, 690, 1000, 2000, 4000},
        {"memorial_church", 512, 768, 250000, 2000000, 16000000},
        {"sculpture_garden_people", 1024, 754, 3125, 12500, 50000},
        {"pingpong_handheld", 1920, 1080, 1000, 4000, 16667},
        {"stlouis_arch_night", 2816, 2112, 33333, 250000, 2000000},
        {"iphonexr_night_street", 4032, 3024, 34483, 125000, 500000},
        {"street_bmw_x5_bayer", 1984, 1264, 400, 1600, 6400},
    };
    for (const Case &c : cases) {
        BracketSet set;
        std::string err;
        ASSERT_TRUE(load_bracket_set(root + "/" + c.set, &set, &err)) << c.set << ": " << err;
        EXPECT_EQ(set.exposure_units[LE_IDX], c.le) << c.set;
        EXPECT_EQ(set.exposure_units[AE_IDX], c.ae) << c.set;
        EXPECT_EQ(set.exposure_units[HE_IDX], c.he) << c.set;
        double mean[3][3] = {};
        for (int f = 0; f < 3; ++f) {
            ASSERT_EQ(set.frame[f].width, c.w) << c.set;
            ASSERT_EQ(set.frame[f].height, c.h) << c.set;
            const std::vector<uint8_t> &px = set.frame[f].rgb;
            for (size_t i = 0; i < px.size(); i += 3 * 7)
                for (int k = 0; k < 3; ++k) mean[f][k] += px[i + k] * 7.0 * 3 / px.size();
        }
        // Roles: brightness rises from LE to AE to HE.
        auto lum = [&](int f) { return mean[f][0] + mean[f][1] + mean[f][2]; };
        EXPECT_LT(lum(LE_IDX), lum(AE_IDX)) << c.set;
        EXPECT_LT(lum(AE_IDX), lum(HE_IDX)) << c.set;
        if (set.bayer.present) {
            // The gains are grey-world gains of the AE frame: its channels balance
            // only when red and blue sites are where the developer takes them.
            EXPECT_NEAR(mean[AE_IDX][0] / mean[AE_IDX][1], 1.0, 0.08) << c.set;
            EXPECT_NEAR(mean[AE_IDX][2] / mean[AE_IDX][1], 1.0, 0.08) << c.set;
        }
    }
}

// ------------------------------------------------------- merge tool --

TEST(MergeTool, ArgumentsAcceptedAndRejected) {
    struct Case {
        std::vector<const char *> args;
        bool ok;
    } cases[] = {
        {{}, true},
        {{"--bracket", "d", "--size", "640x360", "--log", "--out-nv12", "o.nv12"}, true},
        {{"--he", "a", "--le", "b", "--ae", "c", "--exposure-units", "16,1,4"}, true},
        {{"--he", "a", "--le", "b", "--ae", "c"}, false},                      // no exposures
        {{"--he", "a", "--le", "b"}, false},                                   // incomplete set
        {{"--he", "a", "--le", "b", "--ae", "c", "--bracket", "d", "--exposure-units", "1,2,3"}, false},
        {{"--exposure-units", "1,2"}, false},
        {{"--exposure-units", "1,0,3"}, false},
        {{"--exposure-units", "1,2,3x"}, false},
        {{"--exposure-units", "4294967296,1,1"}, false},
        {{"--size", "641x360"}, false},
        {{"--size", "4162x3120"}, false},
        {{"--size", "4160x3120"}, true},
        {{"--size", "64x64"}, false},
        {{"--size"}, false},
        {{"--bogus"}, false},
    };
    for (const Case &c : cases) {
        std::vector<const char *> argv = {"varo_hdr_merge"};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        varo_merge::Options o;
        std::string err;
        const bool ok = varo_merge::parse_args((int)argv.size(), argv.data(), &o, &err);
        std::string joined;
        for (const char *a : c.args) joined += std::string(a) + " ";
        EXPECT_EQ(ok, c.ok) << joined << err;
        if (!ok) {
            EXPECT_FALSE(err.empty()) << joined;
        }
    }
    varo_merge::Options o;
    std::string err;
    const char *argv[] = {"x", "--exposure-units", "40000,2500,10000", "--size", "320x240"};
    ASSERT_TRUE(varo_merge::parse_args(5, argv, &o, &err));
    EXPECT_EQ(o.units[HE_IDX], 40000u);
    EXPECT_EQ(o.units[LE_IDX], 2500u);
    EXPECT_EQ(o.units[AE_IDX], 10000u);
    EXPECT_EQ(o.width, 320);
    EXPECT_EQ(o.height, 240);
}

TEST(MergeTool, DescriptorBuffersAndOutputRectangle) {
    varo_merge::Options opt;
    std::string err;
    const char *argv[] = {"x", "--size", "320x180"};
    ASSERT_TRUE(varo_merge::parse_args(3, argv, &opt, &err));
    varo_merge::Inputs in;
    ASSERT_TRUE(varo_merge::load_inputs(opt, &in, &err)) << err;
    varo_merge::Frames frames;
    varo_merge::make_frames(in, &frames);
    HdrInput d;
    varo_merge::fill_descriptor(&frames, in.units, &d);
    EXPECT_EQ(d.width, 320);
    EXPECT_EQ(d.height, 180);
    for (int f = 0; f < 3; ++f) {
        const varo_merge::FrameBuffer &b = *frames.buf[f];
        EXPECT_EQ(d.frame[f].luma, b.luma());
        EXPECT_EQ(d.frame[f].chroma, d.frame[f].luma + 320 * 180); // contiguous
        EXPECT_GE(b.bytes(), 320u * 180 * 3 / 2 + 126 * 320 + 126);
        EXPECT_EQ(d.exposure[f].exposure_scale, 1.0f);
        EXPECT_EQ(d.exposure[f].exposure_units, in.units[f]);
        const Nv12Image ref = rgb_to_nv12(in.frame[f]);
        EXPECT_EQ(0, memcmp(b.luma(), ref.luma.data(), ref.luma.size()));
        EXPECT_EQ(0, memcmp(b.chroma(), ref.chroma.data(), ref.chroma.size()));
        EXPECT_EQ(b.chroma()[ref.chroma.size() + 126 * 320 + 125], 0); // slack readable and zeroed
    }

    // The rectangle is read from the HE planes at the input pitch.
    for (int i = 0; i < 320 * 180; ++i) frames.buf[HE_IDX]->luma()[i] = (uint8_t)(i % 320 + i / 320);
    d.out_x = 3, d.out_y = 5, d.out_width = 101, d.out_height = 40;
    Nv12Image out;
    ASSERT_TRUE(varo_merge::extract_output(d, &out, &err)) << err;
    EXPECT_EQ(out.width, 100);
    EXPECT_EQ(out.height, 40);
    EXPECT_EQ(out.luma[0], 3 + 5);
    EXPECT_EQ(out.luma[39 * 100 + 99], (uint8_t)(102 + 44));
    EXPECT_EQ(out.chroma[0], frames.buf[HE_IDX]->chroma()[2 * 320 + 2]);
    const int bad[][4] = {{-2, 0, 100, 100}, {0, 0, 321, 180}, {0, 100, 320, 81}, {0, 0, 0, 10}};
    for (const auto &r : bad) {
        d.out_x = r[0], d.out_y = r[1], d.out_width = r[2], d.out_height = r[3];
        EXPECT_FALSE(varo_merge::extract_output(d, &out, &err)) << r[0] << "," << r[1];
    }
}

} // namespace

#endif // VARO_HAVE_IMAGEIO
