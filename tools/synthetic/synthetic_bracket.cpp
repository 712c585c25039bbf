#include "synthetic_bracket.h"

#include <math.h>
#include <string.h>

namespace {

uint32_t hash3(int32_t x, int32_t y, uint32_t seed) {
    uint32_t h = (uint32_t)x * 0x8DA6B343u ^ (uint32_t)y * 0xD8163841u ^ seed * 0xCB1AB31Fu;
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    h *= 0x297A2D39u;
    h ^= h >> 15;
    return h;
}

// Value noise in 0..4095 with lattice spacing 1 << shift (bilinear, integer).
int32_t noise(int32_t x, int32_t y, int shift, uint32_t seed) {
    int32_t xi = x >> shift, yi = y >> shift;
    int32_t one = 1 << shift, fx = x & (one - 1), fy = y & (one - 1);
    int32_t a = hash3(xi, yi, seed) & 4095, b = hash3(xi + 1, yi, seed) & 4095;
    int32_t c = hash3(xi, yi + 1, seed) & 4095, d = hash3(xi + 1, yi + 1, seed) & 4095;
    int64_t top = (int64_t)a * (one - fx) + (int64_t)b * fx;
    int64_t bot = (int64_t)c * (one - fx) + (int64_t)d * fx;
    return (int32_t)((top * (one - fy) + bot * fy) >> (2 * shift));
}

uint32_t isqrt64(uint64_t v) { // floor of the square root, exact whatever the double rounding
    uint64_t r = (uint64_t)sqrt((double)v);
    while (r * r > v) --r;
    while ((r + 1) * (r + 1) <= v) ++r;
    return (uint32_t)r;
}

// Scene radiance at scene coordinates, fixed point (1 << 12 = mid-grey-ish).
uint32_t radiance(int32_t x, int32_t y, const BracketOptions &o, int frame_index) {
    if (o.flat) return 1 << 12;
    // Octaves falling off like a natural scene: the bitmaps are sampled
    // without filtering, so the coarse levels must see coarse structure.
    int32_t t = noise(x, y, 7, o.seed) + (noise(x, y, 5, o.seed + 7) >> 1) +
                (noise(x, y, 3, o.seed + 13) >> 2) + (noise(x, y, 1, o.seed + 17) >> 3); // 0 .. ~7680
    // Bright lamps and deep shadows: radiance spans about 1 : 4000.
    uint32_t L = (uint32_t)(t * t) >> 11; // 0 .. ~28800: AE mid-grey, HE clips only the top
    if ((hash3(x >> 7, y >> 7, o.seed + 3) & 7) == 0) L = L * 16 + (1 << 14);
    if (o.moving_object) {
        int32_t ox = 40 + frame_index * 24, oy = 30;
        if (x >= ox && x < ox + 64 && y >= oy && y < oy + 48) L = 1 << 15;
    }
    return L + 8;
}

const uint32_t kGain[3] = {16, 1, 4}; // HE, LE, AE

uint8_t expose(uint32_t L, uint32_t gain) {
    // 255 * sqrt(L * gain / white), white = 1 << 18.
    uint64_t v = (uint64_t)L * gain * 65025u >> 18;
    uint32_t p = isqrt64(v);
    return (uint8_t)(p > 255 ? 255 : p);
}

} // namespace

HdrInput TestBracket::input() {
    HdrInput in;
    memset(&in, 0, sizeof in);
    for (int f = 0; f < 3; ++f) {
        in.frame[f].luma = frame[f].luma();
        in.frame[f].chroma = frame[f].chroma();
        in.exposure[f].exposure_scale = 1.0f;
        in.exposure[f].exposure_units = units[f];
    }
    in.width = frame[0].width;
    in.height = frame[0].height;
    return in;
}

TestBracket make_bracket(int W, int H, const BracketOptions &o) {
    TestBracket b;
    b.units[HE_IDX] = 16000;
    b.units[LE_IDX] = 1000;
    b.units[AE_IDX] = 4000;
    const int dx[3] = {o.he_dx, o.le_dx, 0}, dy[3] = {o.he_dy, o.le_dy, 0};
    for (int f = 0; f < 3; ++f) {
        TestFrame &fr = b.frame[f];
        fr.width = W;
        fr.height = H;
        fr.buf.assign((size_t)W * H + (size_t)W * H / 2 + (size_t)W * 127 + 128, 0);
        for (int r = 0; r < H; ++r)
            for (int c = 0; c < W; ++c)
                fr.luma()[(size_t)r * W + c] = expose(radiance(c - dx[f], r - dy[f], o, f), kGain[f]);
        for (int r = 0; r < H / 2; ++r)
            for (int c = 0; c < W / 2; ++c) {
                // Colour follows slow scene regions, fading out at the extremes.
                int32_t sx = 2 * c - dx[f], sy = 2 * r - dy[f];
                uint8_t y = fr.luma()[(size_t)(2 * r) * W + 2 * c];
                int32_t sat = y < 128 ? y : 255 - y;
                int32_t u = ((noise(sx, sy, 7, o.seed + 21) - 2048) * sat) >> 13;
                int32_t v = ((noise(sx, sy, 7, o.seed + 22) - 2048) * sat) >> 13;
                fr.chroma()[(size_t)r * W + 2 * c] = (uint8_t)(128 + u);
                fr.chroma()[(size_t)r * W + 2 * c + 1] = (uint8_t)(128 + v);
            }
    }
    return b;
}

LumaFrame textured_frame(int width, int height, uint32_t seed) {
    BracketOptions o;
    o.seed = seed;
    LumaFrame f{width, height, std::vector<uint8_t>((size_t)width * height)};
    for (int r = 0; r < height; ++r)
        for (int c = 0; c < width; ++c) f.at(c, r) = expose(radiance(c, r, o, AE_IDX), kGain[AE_IDX]);
    return f;
}
