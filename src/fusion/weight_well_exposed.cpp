// Well-exposedness weight map of one frame: a per-frame curve over the
// frame's own luma, gated by its motion mask.
#include "common/arith.h"
#include "common/dsp.h"
#include "common/table_gen.h"
#include "varo_hdr.h"

namespace {

// The short exposure's curve (rising: its dark pixels are noise); 255 from
// luma 144 up.  The other two curves are derived from it.
constexpr uint8_t kRising[144] = {
    1,   1,   1,   1,   1,   1,   1,   1,   1,   1,   1,   1,   2,   2,   3,   3,
    4,   5,   5,   6,   7,   9,   10,  11,  13,  15,  16,  19,  21,  23,  26,  28,
    31,  34,  37,  41,  44,  48,  52,  55,  59,  63,  68,  72,  76,  81,  85,  89,
    94,  99,  103, 108, 112, 117, 121, 126, 130, 134, 139, 143, 147, 151, 155, 159,
    163, 167, 171, 174, 178, 181, 184, 188, 191, 194, 196, 199, 202, 205, 207, 209,
    212, 214, 216, 218, 220, 222, 224, 225, 227, 228, 230, 231, 233, 234, 235, 236,
    237, 238, 239, 240, 241, 242, 243, 244, 244, 245, 246, 246, 247, 247, 248, 248,
    249, 249, 250, 250, 250, 251, 251, 251, 251, 252, 252, 252, 252, 253, 253, 253,
    253, 253, 253, 253, 254, 254, 254, 254, 254, 254, 254, 254, 254, 254, 254, 254,
};

constexpr uint8_t rising(int y) { return y < 144 ? kRising[y] : 255; }

// Long exposure: the mirror (its bright pixels clip).  Normal exposure: the
// rising curve below mid-grey, the falling one above, joined by a hand-set
// apex whose 255 sits at 127 and 128 only.
constexpr uint8_t curve_entry(int i) {
    int f = i >> 8, y = i & 255;
    if (f == LE_IDX) return rising(y);
    if (f == HE_IDX) return rising(255 - y);
    if (y < 126) return rising(y);
    if (y >= 130) return rising(255 - y);
    return y == 126 || y == 129 ? 254 : 255;
}

} // namespace

extern "C" VARO_HDR_API const uint8_t well_expose[768] = {
    TABLE_GEN256(curve_entry, 0), TABLE_GEN256(curve_entry, 256), TABLE_GEN256(curve_entry, 512)};

decl_weight_well_exposed_fn(weight_well_exposed_c) {
    const int n = width & ~7;
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < n; ++x) {
            uint16_t p = (uint16_t)(curve[luma[x]] * mask[x]);
            dst[x] = min_u8(p);
        }
        // The mask is dense over the processed pixels; the planes keep their
        // pitch relative to the nominal width.
        mask += n;
        luma += n + (stride - width);
        dst += n + (stride - width);
    }
}

extern "C" VARO_HDR_API void WeightWellExposed(HdrContext *ctx, int32_t frame_index) {
    if (ctx->height < 1) return;
    hdr_dsp()->fusion.weight_well_exposed(ctx->w_gaussian_pyramid[frame_index][0],
                                          ctx->img_gaussian_pyramid[frame_index][0],
                                          ctx->row_stride[0], ctx->motion_mask[frame_index],
                                          well_expose + 256 * frame_index, ctx->width, ctx->height);
}
