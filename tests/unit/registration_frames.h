// Synthetic and real frames for the registration tests.
#pragma once
#include <stdint.h>

#include <string>
#include <vector>

struct LumaFrame {
    int width, height;
    std::vector<uint8_t> pixels;
    uint8_t *data() { return pixels.data(); }
    uint8_t &at(int x, int y) { return pixels[(size_t)y * width + x]; }
};

// The AE luma of a synthetic bracket: detail at every scale, so that every
// bitmap level sees texture.
LumaFrame textured_frame(int width, int height, uint32_t seed);

// The window of `src` with its top-left corner at (x, y), passed through a
// tone curve: out = 255 * (in / 255)^gamma * gain, saturated.
LumaFrame crop_window(const LumaFrame &src, int x, int y, int width, int height, double gain = 1.0, double gamma = 1.0);

// Luma of an image file (BT.601 weights); false when unreadable or when this
// build has no image I/O (cross builds).
bool load_luma(const std::string &path, LumaFrame *out);
