// What the SIMD curve lookups of the weight kernels need to know of a curve:
// byte-shuffle tables cover 16 or 32 entries, and most of a well-exposedness
// curve is one constant run at either end.
#pragma once
#include <stdint.h>

namespace {

// The parts of 1 << Shift entries that a lookup must visit: indices outside
// parts first .. first + count - 1 all map to `fill`.  A curve with
// curve[y] == curve[255 - y] (the normal exposure's bell) is looked up at
// min(y, 255 - y), which only needs the parts below 128 (fold).
struct CurveParts {
    int first, count;
    uint8_t fill;
    bool fold;
};

template <int Shift> CurveParts curve_parts(const uint8_t *curve) {
    bool fold = true;
    for (int y = 0; y < 128; ++y) fold = fold && curve[y] == curve[255 - y];
    if (fold) return {0, 128 >> Shift, 0, true};
    CurveParts best = {0, 256 >> Shift, 0, false};
    const uint8_t ends[2] = {curve[0], curve[255]};
    for (const uint8_t v : ends) {
        int first = 0, last = 255;
        while (first < 256 && curve[first] == v) ++first;
        while (last >= first && curve[last] == v) --last;
        if (first > last) return {0, 1, v, false}; // a constant curve
        const int p0 = first >> Shift, n = (last >> Shift) - p0 + 1;
        if (n < best.count) best = {p0, n, v, false};
    }
    return best;
}

} // namespace
