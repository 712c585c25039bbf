// The bundled default input: the synthetic bracket of the tests and
// benchmarks, shot three times with a slightly moving camera.
#include "imageio.h"
#include "synthetic_bracket.h"

namespace varo_io {

namespace {
// Pixel shift of each frame against AE, as (dx, dy); order HE, LE, AE.
const int kShift[3][2] = {{-4, 3}, {3, -2}, {0, 0}};
} // namespace

void synthetic_shift(int frame, int *dx, int *dy) {
    *dx = kShift[frame][0];
    *dy = kShift[frame][1];
}

SyntheticBracket synthetic_bracket(int width, int height) {
    // The generator's side frames show AE's (x - dx, y - dy).
    BracketOptions o;
    o.he_dx = -kShift[HE_IDX][0], o.he_dy = -kShift[HE_IDX][1];
    o.le_dx = -kShift[LE_IDX][0], o.le_dy = -kShift[LE_IDX][1];
    const TestBracket b = make_bracket(width, height, o);
    SyntheticBracket out;
    for (int f = 0; f < 3; ++f) {
        out.frame[f] = nv12_planes_to_rgb(b.frame[f].luma(), b.frame[f].chroma(), width, width, height);
        out.exposure_units[f] = b.units[f];
    }
    return out;
}

} // namespace varo_io
