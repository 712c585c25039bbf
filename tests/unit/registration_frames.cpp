#include "unit/registration_frames.h"

#include <math.h>
#include <stdio.h>
#include <string.h>

#if VARO_TEST_HAVE_PNG
#include <png.h>
#endif

LumaFrame textured_frame(int width, int height, uint32_t seed) {
    LumaFrame f;
    f.width = width;
    f.height = height;
    std::vector<float> acc((size_t)width * height, 0.0f);
    uint32_t s = seed * 2654435761u + 1;
    auto rnd = [&s]() {
        s ^= s << 13;
        s ^= s >> 17;
        s ^= s << 5;
        return (float)(s & 0xFFFF) / 65535.0f;
    };
    for (int scale = 2; scale <= 128; scale *= 2) {
        // Bilinear interpolation of a coarse random grid.
        const int gw = width / scale + 2, gh = height / scale + 2;
        std::vector<float> grid((size_t)gw * gh);
        for (float &g : grid) g = rnd();
        const float amp = 12.0f + (float)scale / 4.0f;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const int gx = x / scale, gy = y / scale;
                const float fx = (float)(x % scale) / scale, fy = (float)(y % scale) / scale;
                const float v = grid[(size_t)gy * gw + gx] * (1 - fx) * (1 - fy) +
                                grid[(size_t)gy * gw + gx + 1] * fx * (1 - fy) +
                                grid[(size_t)(gy + 1) * gw + gx] * (1 - fx) * fy +
                                grid[(size_t)(gy + 1) * gw + gx + 1] * fx * fy;
                acc[(size_t)y * width + x] += amp * (v - 0.5f);
            }
    }
    f.pixels.resize(acc.size());
    for (size_t i = 0; i < acc.size(); ++i) {
        // Steep tone curve: sharp-edged blobs, far from the median away from edges.
        const float v = 128.0f + 110.0f * tanhf(acc[i] / 8.0f);
        f.pixels[i] = (uint8_t)(v < 0 ? 0 : v > 255 ? 255 : v);
    }
    return f;
}

LumaFrame crop_window(const LumaFrame &src, int x, int y, int width, int height, double gain,
                      double gamma) {
    LumaFrame f;
    f.width = width;
    f.height = height;
    f.pixels.resize((size_t)width * height);
    uint8_t lut[256];
    for (int i = 0; i < 256; ++i) {
        const double v = 255.0 * pow(i / 255.0, gamma) * gain + 0.5;
        lut[i] = (uint8_t)(v > 255 ? 255 : v);
    }
    for (int r = 0; r < height; ++r)
        for (int c = 0; c < width; ++c)
            f.pixels[(size_t)r * width + c] = lut[src.pixels[(size_t)(y + r) * src.width + x + c]];
    return f;
}

bool have_png_support() { return VARO_TEST_HAVE_PNG != 0; }

bool load_png_luma(const std::string &path, LumaFrame *out) {
#if VARO_TEST_HAVE_PNG
    png_image img;
    memset(&img, 0, sizeof img);
    img.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&img, path.c_str())) return false;
    img.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(img));
    if (!png_image_finish_read(&img, nullptr, rgb.data(), 0, nullptr)) {
        png_image_free(&img);
        return false;
    }
    out->width = (int)img.width;
    out->height = (int)img.height;
    out->pixels.resize((size_t)img.width * img.height);
    for (size_t i = 0; i < out->pixels.size(); ++i) {
        const uint8_t *p = &rgb[3 * i];
        out->pixels[i] = (uint8_t)((77 * p[0] + 150 * p[1] + 29 * p[2] + 128) >> 8);
    }
    return true;
#else
    (void)path;
    (void)out;
    return false;
#endif
}
