// The bundled default input: an invented high-contrast street at dusk, shot
// three times with a slightly moving camera.
#include <math.h>

#include "imageio.h"

namespace varo_io {

namespace {

// Pixel shift of each frame against AE, as (dx, dy); order HE, LE, AE.
const int kShift[3][2] = {{-4, 3}, {3, -2}, {0, 0}};
const int kMargin = 8; // covers the largest shift
// Exposure times 16 : 1 : 4 (HE, LE, AE), in microseconds.
const uint32_t kUnits[3] = {40000, 2500, 10000};

uint32_t hash3(uint32_t x, uint32_t y, uint32_t z) {
    uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ z * 0xcb1ab31fu;
    h ^= h >> 15;
    h *= 0x2c1b3c6du;
    h ^= h >> 12;
    h *= 0x297a2d39u;
    h ^= h >> 15;
    return h;
}
double unit(uint32_t h) { return (h & 0xffffff) / 16777216.0; }

// Smooth value noise in [0, 1) with lattice spacing `cell` pixels.
double value_noise(double x, double y, double cell, uint32_t seed) {
    const double fx = x / cell, fy = y / cell;
    const double x0 = floor(fx), y0 = floor(fy);
    double tx = fx - x0, ty = fy - y0;
    tx = tx * tx * (3 - 2 * tx);
    ty = ty * ty * (3 - 2 * ty);
    const uint32_t ix = (uint32_t)(int32_t)x0, iy = (uint32_t)(int32_t)y0;
    const double a = unit(hash3(ix, iy, seed)), b = unit(hash3(ix + 1, iy, seed));
    const double c = unit(hash3(ix, iy + 1, seed)), d = unit(hash3(ix + 1, iy + 1, seed));
    return (a + (b - a) * tx) + ((c + (d - c) * tx) - (a + (b - a) * tx)) * ty;
}

double fbm(double x, double y, double cell, uint32_t seed) {
    double sum = 0, amp = 0.5;
    for (int o = 0; o < 4; ++o, cell *= 0.5, amp *= 0.5) sum += amp * value_noise(x, y, cell, seed + o);
    return sum / 0.9375;
}

struct Rgb {
    double r, g, b;
};
Rgb scale(Rgb c, double k) { return {c.r * k, c.g * k, c.b * k}; }
Rgb add(Rgb a, Rgb b) { return {a.r + b.r, a.g + b.g, a.b + b.b}; }

// Scene radiance at pixel (x, y) of the AE view, in units where the AE
// exposure clips at 1.0.  s = height / 720 scales every feature.
Rgb radiance(double x, double y, int w, int h) {
    const double s = h / 720.0;
    const double u = x / w, v = y / h;
    const double horizon = 0.55;

    // Buildings: a skyline of blocks with a grid of windows.
    const int block = (int)floor(u * 9.0);
    const double top = 0.18 + 0.3 * unit(hash3((uint32_t)block, 7, 1));
    const bool in_building = v > top && v < horizon + 0.2 && block >= 1 && block <= 7;

    Rgb c;
    if (v < horizon + 0.2 && !in_building) {
        // Sky: bright, bluish towards the top, warm towards the horizon, with clouds.
        const double t = v / (horizon + 0.2);
        c = add(scale(Rgb{0.18, 0.26, 0.55}, 1.0 - t), scale(Rgb{0.55, 0.42, 0.30}, t));
        const double cloud = fbm(x, y * 2.0, 180 * s, 11);
        c = scale(c, 0.7 + 0.8 * cloud * cloud);
        // Sun low over the skyline, with a glow.
        const double dx = (x - 0.84 * w) / s, dy = (y - 0.16 * h) / s;
        const double r2 = dx * dx + dy * dy;
        if (r2 < 26.0 * 26.0) c = Rgb{60.0, 55.0, 45.0};
        else c = add(c, scale(Rgb{1.0, 0.85, 0.6}, 2.5 * 26.0 * 26.0 / r2));
    } else if (in_building) {
        // Facade in shade with brick texture; windows, some lit.
        const double bx = x / s, by = y / s;
        const int row = (int)floor(by / 9.0);
        const double brick = ((int)floor((bx + (row & 1) * 11.0) / 22.0) + row) & 1 ? 0.9 : 1.1;
        const double mortar = (fmod(by, 9.0) < 1.5 || fmod(bx + (row & 1) * 11.0, 22.0) < 1.5) ? 0.6 : 1.0;
        const double tint = 0.5 + fbm(x, y, 60 * s, 23 + block);
        c = scale(Rgb{0.045, 0.032, 0.026}, brick * mortar * tint);
        const double wx = fmod(bx, 48.0), wy = fmod(by, 64.0);
        if (wx > 14 && wx < 34 && wy > 18 && wy < 46) {
            const uint32_t id = hash3((uint32_t)(int)(bx / 48.0), (uint32_t)(int)(by / 64.0), 5 + block);
            if ((id & 3) == 0) c = scale(Rgb{1.6, 1.1, 0.55}, 0.6 + 0.8 * unit(id >> 8)); // lamp-lit room
            else c = scale(Rgb{0.012, 0.014, 0.02}, 0.8 + 0.4 * unit(id >> 8));         // dark glass
        }
    } else {
        // Street: sunlit paving on the right, deep shadow of an arcade on the left.
        const double bx = x / s, by = y / s;
        const double stone = 0.7 + 0.6 * fbm(x, y, 24 * s, 31);
        const double joint = (fmod(bx + 0.35 * by, 40.0) < 2.0 || fmod(by, 20.0) < 2.0) ? 0.5 : 1.0;
        c = scale(Rgb{0.07, 0.065, 0.055}, stone * joint);
        const double shadow_edge = 0.42 - 0.25 * (v - (horizon + 0.2)) / (1.0 - horizon - 0.2);
        if (u < shadow_edge) c = scale(c, 0.04); // arcade shadow: around 5 stops darker
    }

    // Two street lamps: dark poles and very bright bulbs.
    const double lamps[2] = {0.22, 0.62};
    for (double lu : lamps) {
        const double px = (x - lu * w) / s, py = y / s;
        const double bulb_y = (horizon + 0.05) * 720.0;
        if (fabs(px) < 3.0 && py > bulb_y && py < 700.0) c = Rgb{0.01, 0.01, 0.012};
        const double dx = px, dy = py - bulb_y;
        const double r2 = dx * dx + dy * dy;
        if (r2 < 9.0 * 9.0) c = Rgb{8.0, 7.0, 5.0};
        else c = add(c, scale(Rgb{0.6, 0.5, 0.3}, 40.0 / (r2 + 40.0)));
    }
    return c;
}

// Camera response: linear exposure X (1.0 = clipping) to an 8-bit value
// through a 1/2.2 power with a soft shoulder.
double response(double X) {
    if (X <= 0) return 0;
    double y = pow(X, 1.0 / 2.2);
    if (y > 0.8) y = 0.8 + 0.2 * (1.0 - exp(-(y - 0.8) / 0.2));
    return 255.0 * (y > 1.0 ? 1.0 : y);
}

} // namespace

void synthetic_shift(int frame, int *dx, int *dy) {
    *dx = kShift[frame][0];
    *dy = kShift[frame][1];
}

SyntheticBracket synthetic_bracket(int width, int height) {
    SyntheticBracket out;
    const int cw = width + 2 * kMargin, ch = height + 2 * kMargin;
    std::vector<Rgb> scene((size_t)cw * ch);
    for (int y = 0; y < ch; ++y)
        for (int x = 0; x < cw; ++x)
            scene[(size_t)y * cw + x] = radiance(x - kMargin + 0.5, y - kMargin + 0.5, width, height);

    const double exposure[3] = {16.0, 1.0, 4.0}; // HE, LE, AE relative to LE; AE k = 1
    for (int f = 0; f < 3; ++f) {
        RgbImage img = make_rgb(width, height);
        const double k = 0.25 * exposure[f];
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const Rgb &L = scene[(size_t)(y + kMargin + kShift[f][1]) * cw + x + kMargin + kShift[f][0]];
                uint8_t *o = &img.rgb[((size_t)y * width + x) * 3];
                const double comp[3] = {L.r, L.g, L.b};
                for (int c = 0; c < 3; ++c) {
                    // Sensor noise, fixed per frame and pixel: shot-like plus a read floor.
                    const double n = unit(hash3((uint32_t)x, (uint32_t)y, 101u + 3u * f + c)) - 0.5;
                    const double X = comp[c] * k;
                    const double v = response(X + n * (0.002 + 0.02 * sqrt(X)) * 0.5) + 0.5;
                    o[c] = (uint8_t)(v < 0 ? 0 : v > 255 ? 255 : v);
                }
            }
        out.frame[f] = std::move(img);
        out.exposure_units[f] = kUnits[f];
    }
    return out;
}

} // namespace varo_io
