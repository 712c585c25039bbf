#include "unit/registration_frames.h"

#include <math.h>

#include "unit/synthetic.h"
#if defined(VARO_HAVE_IMAGEIO)
#include "imageio.h"
#endif

LumaFrame textured_frame(int width, int height, uint32_t seed) {
    BracketOptions o;
    o.seed = seed;
    const TestBracket b = make_bracket(width, height, o);
    return LumaFrame{width, height, std::vector<uint8_t>(b.frame[AE_IDX].luma(), b.frame[AE_IDX].luma() + (size_t)width * height)};
}

LumaFrame crop_window(const LumaFrame &src, int x, int y, int width, int height, double gain, double gamma) {
    LumaFrame f{width, height, std::vector<uint8_t>((size_t)width * height)};
    uint8_t lut[256];
    for (int i = 0; i < 256; ++i) lut[i] = (uint8_t)std::min(255.0, 255.0 * pow(i / 255.0, gamma) * gain + 0.5);
    for (int r = 0; r < height; ++r)
        for (int c = 0; c < width; ++c) f.pixels[(size_t)r * width + c] = lut[src.pixels[(size_t)(y + r) * src.width + x + c]];
    return f;
}

bool load_luma(const std::string &path, LumaFrame *out) {
#if defined(VARO_HAVE_IMAGEIO)
    varo_io::RgbImage img;
    std::string err;
    if (!varo_io::load_image(path, &img, &err)) return false;
    *out = LumaFrame{img.width, img.height, std::vector<uint8_t>((size_t)img.width * img.height)};
    for (size_t i = 0; i < out->pixels.size(); ++i) {
        const uint8_t *p = &img.rgb[3 * i];
        out->pixels[i] = (uint8_t)((77 * p[0] + 150 * p[1] + 29 * p[2] + 128) >> 8);
    }
    return true;
#else
    (void)path, (void)out;
    return false;
#endif
}
