// Ghost detection: marks pixels where a side frame disagrees with the
// reference by more than the exposure ratio explains.
#include <string.h>

#include "common/arith.h"
#include "common/log.h"
#include "varo_hdr.h"

namespace {

enum { kLinearMax = 1623 };
const uint32_t kVetoPixels = 840000;

inline uint8_t linear_to_pixel(double linear) {
    const int32_t v = cvt_f64_s32(linear);
    return inv_csf_tab[v < 0 ? 0 : v > kLinearMax ? kLinearMax : v];
}

// |value - predicted| / side in single precision, the difference taken as an
// 8-bit value.  side 0 gives inf, or NaN when the difference is 0 too (NaN
// compares as not greater than any threshold).
inline float relative_diff(uint8_t value, uint8_t predicted, uint8_t side) {
    const uint8_t diff =
        value > predicted ? (uint8_t)(value - predicted) : (uint8_t)(predicted - value);
    return (float)diff / (float)side;
}

void copy_plane(uint8_t *dst, int32_t dst_pitch, const uint8_t *src, int32_t src_pitch,
                int32_t width, int32_t height) {
    for (int32_t y = 0; y < height; ++y)
        memcpy(dst + (ptrdiff_t)y * dst_pitch, src + (ptrdiff_t)y * src_pitch, (size_t)width);
}

void le_against_ae(const HdrContext *ctx, float et_le, float et_he) {
    uint8_t predict[256]; // AE value -> expected LE value
    for (int i = 0; i < 256; ++i) predict[i] = linear_to_pixel(et_le * (float)csf_tab[i] + 5.0);

    const int32_t w = ctx->width, h = ctx->height, pitch = ctx->row_stride[0];
    const uint8_t *ae = ctx->img_gaussian_pyramid[AE_IDX][0];
    uint8_t *le = ctx->img_gaussian_pyramid[LE_IDX][0];
    uint8_t *ae_mask = ctx->motion_mask[AE_IDX];
    uint8_t *le_mask = ctx->motion_mask[LE_IDX];
    const bool short_le = et_le < 0.35; // NaN takes the milder case
    const float t = (1 - et_le) / 50;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            const ptrdiff_t i = (ptrdiff_t)y * pitch + x, m = (ptrdiff_t)y * w + x;
            const uint8_t a = ae[i], l = le[i], p = predict[a];
            const float r = relative_diff(l, p, l);
            if (short_le) {
                if (a <= 219 && r > 0.04) le_mask[m] = 0;
                if (l <= 127 && a >= 221 && r > 0.04) {
                    le_mask[m] = 0;
                    le[i] = p;
                }
            } else if (et_he <= 3.0) {
                if (r > t) {
                    le_mask[m] = 0;
                    ae_mask[m] = 255;
                }
            } else if (et_he > 3.0) { // a NaN HE ratio takes neither branch
                if (a < l) {
                    le_mask[m] = 0;
                } else if (l <= 191 && r > 0.04) {
                    le_mask[m] = 0;
                    le[i] = p;
                }
            }
        }
}

// Returns how many dark AE pixels under a bright HE pixel were replaced.
uint32_t he_against_ae(const HdrContext *ctx, float et_he) {
    uint8_t predict[256]; // HE value -> expected AE value
    for (int i = 0; i < 256; ++i) predict[i] = linear_to_pixel((float)csf_tab[i] / et_he + 5.0);

    const int32_t w = ctx->width, h = ctx->height, pitch = ctx->row_stride[0];
    uint8_t *ae = ctx->img_gaussian_pyramid[AE_IDX][0];
    const uint8_t *le = ctx->img_gaussian_pyramid[LE_IDX][0];
    const uint8_t *he = ctx->img_gaussian_pyramid[HE_IDX][0];
    uint8_t *ae_mask = ctx->motion_mask[AE_IDX];
    uint8_t *le_mask = ctx->motion_mask[LE_IDX];
    uint8_t *he_mask = ctx->motion_mask[HE_IDX];
    const bool long_he = et_he > 2.0; // NaN takes the milder case
    const float t = (et_he - 1) / 120;
    uint32_t counted = 0;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            const ptrdiff_t i = (ptrdiff_t)y * pitch + x, m = (ptrdiff_t)y * w + x;
            const uint8_t hv = he[i], a = ae[i], l = le[i], p = predict[hv];
            const float r = relative_diff(a, p, hv); // before any replacement
            if (!long_he) {
                if (r > t) {
                    he_mask[m] = 0;
                    ae_mask[m] = 255;
                }
                continue;
            }
            if (hv <= 220 && r > 0.02) {
                ae_mask[m] = 0;
                le_mask[m] = 0;
                ae[i] = p;
            }
            if (l > hv) le_mask[m] = 0;
            if (hv >= 221 && a <= 127 && r > 0.04) {
                ae_mask[m] = 0;
                le_mask[m] = 0;
                ae[i] = p;
                ++counted;
            }
            // A bright LE pixel under a saturated HE pixel is kept, even if
            // the LE pass dropped it.
            if (hv >= 241 && l >= 129 && le_mask[m] == 0) le_mask[m] = 1;
        }
    return counted;
}

} // namespace

extern "C" VARO_HDR_API int MotionMask(HdrContext *ctx, HdrInput *in) {
    const int32_t w = ctx->width, h = ctx->height;
    static const int kCopyOrder[3] = {AE_IDX, LE_IDX, HE_IDX};
    for (int f : kCopyOrder)
        copy_plane(ctx->img_gaussian_pyramid[f][0], ctx->row_stride[0], ctx->aligned[f].luma,
                   in->width, w, h);

    float exposure[3];
    for (int f = 0; f < 3; ++f)
        exposure[f] = (float)in->exposure[f].exposure_units * in->exposure[f].exposure_scale;
    const float et_scale_ae2le = exposure[LE_IDX] / exposure[AE_IDX];
    const float et_scale_ae2he = exposure[HE_IDX] / exposure[AE_IDX];
    HDR_LOG("ET_scale_ae2le: %f, ET_scale_ae2he: %f", (double)et_scale_ae2le,
            (double)et_scale_ae2he);

    if (ctx->le_flag) le_against_ae(ctx, et_scale_ae2le, et_scale_ae2he);
    if (ctx->he_flag) {
        const uint32_t counted = he_against_ae(ctx, et_scale_ae2he);
        // Too many replaced pixels: ghosting too strong to fuse.
        if (et_scale_ae2he > 2.0 && counted > kVetoPixels) return 1;
    }
    return 0;
}
