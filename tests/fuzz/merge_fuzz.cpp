// libFuzzer target: merges on one long-lived context, the input choosing the
// frame size, the exposures (any float, zero, negative, NaN, infinite, huge),
// the contents and the planted shifts of the side frames.  Every plane ends
// against an inaccessible page; the camera layout and separate planes alternate.
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "unit/guarded.h"
#include "varo_hdr.h"

namespace {

struct Reader {
    const uint8_t *p;
    size_t n;
    uint8_t byte() { return n ? (--n, *p++) : 0; }
    uint32_t word() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = v << 8 | byte();
        return v;
    }
};

float exposure_scale(uint8_t mode, uint32_t bits) {
    static const float special[6] = {0.0f, -1.5f, NAN, INFINITY, -INFINITY, 3.0e38f};
    if (mode % 8 < 6) return special[mode % 8];
    float f;
    memcpy(&f, &bits, sizeof f);
    return f;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static HdrContext *ctx;
    if (!ctx && hdrCreateContext(&ctx) != 0) abort();
    Reader r = {data, size};
    const uint8_t sizes = r.byte();
    const int W = 2 + 2 * (r.byte() % (sizes & 1 ? 160 : 40));
    const int H = 2 + 2 * (r.byte() % (sizes & 2 ? 120 : 40));
    const bool separate = sizes & 4;
    HdrInput in;
    memset(&in, 0, sizeof in);
    in.width = W, in.height = H;
    int dx[3] = {0, 0, 0}, dy[3] = {0, 0, 0};
    for (int f = 0; f < 3; ++f) {
        const uint8_t mode = r.byte();
        in.exposure[f].exposure_scale = exposure_scale(mode, r.word());
        in.exposure[f].exposure_units = mode & 0x80 ? r.word() : 1000u << (2 * f);
        if (f != AE_IDX) dx[f] = (int8_t)r.byte() % 64, dy[f] = (int8_t)r.byte() % 64;
    }
    // The rest is texture: a tile of the remaining bytes, enlarged, shifted
    // per frame and brightened with the exposure order.
    const size_t tile = r.n ? r.n : 1;
    const uint8_t zero = 0, *tex = r.n ? r.p : &zero;
    const size_t luma = (size_t)W * H, chroma = luma / 2;
    std::unique_ptr<GuardedBlock> blocks[6];
    for (int f = 0; f < 3; ++f) {
        blocks[2 * f].reset(new GuardedBlock(separate ? luma : luma + chroma));
        if (separate) blocks[2 * f + 1].reset(new GuardedBlock(chroma));
        in.frame[f].luma = blocks[2 * f]->data();
        in.frame[f].chroma = separate ? blocks[2 * f + 1]->data() : in.frame[f].luma + luma;
        if (!in.frame[f].luma || !in.frame[f].chroma) abort();
        const int gain = f == HE_IDX ? 4 : f == LE_IDX ? 1 : 2;
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const size_t t = (size_t)((x - dx[f]) & 1023) / 4 + (size_t)((y - dy[f]) & 1023) / 4 * 97;
                const int v = tex[t % tile] * gain / 2;
                in.frame[f].luma[(size_t)y * W + x] = (uint8_t)(v > 255 ? 255 : v);
            }
        for (size_t i = 0; i < chroma; ++i) in.frame[f].chroma[i] = tex[(i * 7 + f) % tile];
    }
    const int rc = hdrThreeFrameCore(ctx, &in);
    // Every accepted descriptor merges or falls back, inside the frame.
    if (rc != 0 || in.out_x < 0 || in.out_y < 0 || in.out_width < 1 || in.out_height < 1 ||
        in.out_x + in.out_width > W || in.out_y + in.out_height > H)
        abort();
    return 0;
}
