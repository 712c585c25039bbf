// Normalisation of the three full-resolution weight maps so that they sum to
// about 256 at every pixel, through a reciprocal table.
#include "common/arith.h"
#include "common/dsp.h"
#include "common/table_gen.h"
#include "varo_hdr.h"

namespace {
// 0 and 1 share 65535: the 16-bit range has no 65536, and with s <= 1 every
// weight is 0 or the lone 1, which the saturation then lifts to 255.
constexpr uint16_t reciprocal(int s) { return s < 2 ? 65535 : (uint16_t)(65536 / s); }
} // namespace

extern "C" VARO_HDR_API const uint16_t weight_int_tab[768] = {
    TABLE_GEN256(reciprocal, 0), TABLE_GEN256(reciprocal, 256), TABLE_GEN256(reciprocal, 512)};

decl_weight_normalize_fn(weight_normalize_c) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < n; ++x) {
            uint32_t q = weight_int_tab[w0[x] + w1[x] + w2[x]];
            w0[x] = min_u8((uint16_t)((w0[x] * q + 128) >> 8));
            w1[x] = min_u8((uint16_t)((w1[x] * q + 128) >> 8));
            w2[x] = min_u8((uint16_t)((w2[x] * q + 128) >> 8));
        }
        w0 += next;
        w1 += next;
        w2 += next;
    }
}

decl_weight_fused_fn(weight_fused_c) {
    const int n = width & ~7;
    const ptrdiff_t next = n + (stride - width);
    const uint8_t *src[3] = {luma[0], luma[1], luma[2]};
    const uint8_t *m[3] = {mask ? mask[0] : nullptr, mask ? mask[1] : nullptr, mask ? mask[2] : nullptr};
    uint8_t *out[3] = {dst[0], dst[1], dst[2]};
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < n; ++x) {
            uint8_t w[3];
            for (int f = 0; f < 3; ++f)
                w[f] = min_u8((uint16_t)(curves[256 * f + src[f][x]] * (m[f] ? m[f][x] : 1)));
            const uint32_t q = weight_int_tab[w[0] + w[1] + w[2]];
            for (int f = 0; f < 3; ++f) out[f][x] = min_u8((uint16_t)((w[f] * q + 128) >> 8));
        }
        for (int f = 0; f < 3; ++f) {
            src[f] += next;
            out[f] += next;
            if (m[f]) m[f] += n;
        }
    }
}

extern "C" VARO_HDR_API void WeightNormalize(uint8_t *const weight_maps[3][VARO_HDR_MAX_LEVELS],
                                             int32_t width, int32_t height, int32_t stride) {
    if (height < 1) return;
    hdr_dsp()->fusion.weight_normalize(weight_maps[HE_IDX][0], weight_maps[LE_IDX][0],
                                       weight_maps[AE_IDX][0], stride, width, height);
}
