// Deterministic synthetic three-exposure brackets for the tests, the
// benchmarks and the merge tool's bundled input.
// Integer arithmetic only, so every target builds the same bytes.
#pragma once
#include <stdint.h>

#include <vector>

#include "varo_hdr.h"

// One frame in one buffer: luma, then chroma, then readable slack (the
// one-thread reference run of the pipeline tests copies rows past the planes;
// the library reads nothing there).
struct TestFrame {
    int width = 0, height = 0;
    std::vector<uint8_t> buf;
    uint8_t *luma() { return buf.data(); }
    uint8_t *chroma() { return buf.data() + (size_t)width * height; }
    const uint8_t *luma() const { return buf.data(); }
    const uint8_t *chroma() const { return buf.data() + (size_t)width * height; }
};

struct BracketOptions {
    int he_dx = 0, he_dy = 0; // side frame content shift: side(r, c) = AE(r - dy, c - dx)
    int le_dx = 0, le_dy = 0;
    uint32_t seed = 1;
    bool moving_object = false; // a bright block that moves between frames
    bool flat = false;          // uniform frames (nothing to register)
};

// Exposures 1 : 4 : 16 for LE : AE : HE on a square-root camera response.
struct TestBracket {
    TestFrame frame[3]; // indexed by HE_IDX, LE_IDX, AE_IDX
    uint32_t units[3];
    HdrInput input(); // descriptor pointing at the frames
};

TestBracket make_bracket(int width, int height, const BracketOptions &opt = BracketOptions());

// The AE luma of a synthetic bracket alone: detail at every scale, so that
// every registration bitmap level sees texture.
struct LumaFrame {
    int width, height;
    std::vector<uint8_t> pixels;
    uint8_t *data() { return pixels.data(); }
    uint8_t &at(int x, int y) { return pixels[(size_t)y * width + x]; }
};
LumaFrame textured_frame(int width, int height, uint32_t seed);
