// Kernels of the luma fusion: weight maps, pyramids, blend and collapse, on
// every level of 4160x3120 and on small and odd sizes.  Pads written in place
// before row 0 lie inside the buffers, so they are compared too.
#include <algorithm>
#include <vector>

#include "checkasm/checkasm.h"
#include "common/arith.h"
#include "varo_hdr.h"

namespace {

// Weight triples where the reciprocal and the saturation break: all zero, a
// lone weight, equal pairs, maxima, sums of exactly 256.
void fill_weights(uint8_t *w0, uint8_t *w1, uint8_t *w2, size_t n, int kind) {
    for (size_t k = 0; k < n; ++k) {
        const int mode = kind ? kind : (int)(checkasm_rand() % 6), a = checkasm_rand() & 127, b = checkasm_rand() & 127;
        const int t[6][3] = {{(int)checkasm_rand(), (int)checkasm_rand(), (int)checkasm_rand()}, {0, 0, 0}, {2 * a, 0, 0},
                             {2 * a, 2 * a, 0}, {255, 255, 255}, {a, b, std::min(255, 256 - a - b)}};
        const bool swap = checkasm_rand() & 1;
        w0[k] = (uint8_t)t[mode][swap ? 2 : 0], w1[k] = (uint8_t)t[mode][1], w2[k] = (uint8_t)t[mode][swap ? 0 : 2];
    }
}

// Band values: the real range mostly, the whole 16-bit range (sums wrap) otherwise.
int bands(CheckasmBufs &b, size_t count, int pitch, int w, int h, int i, size_t lead = 0) {
    return b.s16(count, pitch, w, h, i % 3 == 2 ? -32768 : -512, i % 3 == 2 ? 32767 : 511, i, lead);
}

const struct {
    const char *name;
    reduce_h_fn FusionDsp::*h;
    reduce_v_fn FusionDsp::*v;
    int max_sum;
} kReduces[] = {{"weight", &FusionDsp::weight_reduce_h, &FusionDsp::weight_reduce_v, 64 * 255},
                {"image", &FusionDsp::image_reduce_h, &FusionDsp::image_reduce_v, 16 * 255}};

} // namespace

CHECKASM_TEST(fusion) {
    const FusionDsp &ref = checkasm_ref().fusion, &opt = checkasm_opt().fusion;
    if (checkasm_check_func(opt.weight_well_exposed != ref.weight_well_exposed, "weight_well_exposed"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 1)) {
            CheckasmBufs b;
            const int luma = b.u8((size_t)c.h * c.pitch, c.pitch, c.w, c.h, c.i), mask = b.u8((size_t)c.h * (c.w & ~7), 64);
            const int dst = b.u8((size_t)c.h * c.pitch, c.pitch);
            // Mostly 0/1 as the motion stage writes; any byte now and then, where the product saturates.
            for (size_t k = 0; c.i % 3 && k < (size_t)c.h * (c.w & ~7); ++k) b.r<uint8_t>(mask)[k] &= 1;
            // The three curves, then any curve: random, and random with one value at both ends.
            uint8_t any[256];
            for (int k = 0; k < 256; ++k) any[k] = (uint8_t)checkasm_rand();
            const int lo = checkasm_rand_range(0, 255), hi = lo + checkasm_rand_range(0, 140);
            for (int k = 0; c.i % 5 == 4 && k < 256; ++k)
                if (k < lo || k > hi) any[k] = any[0];
            const uint8_t *curve = c.i % 5 < 3 ? well_expose + 256 * (c.i % 5) : any;
            b.run([&](const HdrDsp &d, bool o) {
                d.fusion.weight_well_exposed(b.p<uint8_t>(dst, o), b.p<uint8_t>(luma, o), c.pitch,
                                             b.p<uint8_t>(mask, o), curve, c.w, c.h);
            }, c.i == 2, "weight_well_exposed %dx%d pitch %d", c.w, c.h, c.pitch);
        }
    if (checkasm_check_func(opt.weight_normalize != ref.weight_normalize, "weight_normalize"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 1)) {
            CheckasmBufs b;
            for (int f = 0; f < 3; ++f) b.u8((size_t)c.h * c.pitch, c.pitch);
            fill_weights(b.r<uint8_t>(0), b.r<uint8_t>(1), b.r<uint8_t>(2), (size_t)c.h * c.pitch, c.i % 6);
            b.run([&](const HdrDsp &d, bool o) {
                d.fusion.weight_normalize(b.p<uint8_t>(0, o), b.p<uint8_t>(1, o), b.p<uint8_t>(2, o), c.pitch, c.w, c.h);
            }, c.i == 2, "weight_normalize %dx%d pitch %d", c.w, c.h, c.pitch);
        }
    // Against the two-pass references; one size in four runs weight_fused_c in place of the variant.
    if (checkasm_check_func(true, "weight_fused"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 1)) {
            const int n = c.w & ~7, masks = c.i % 4; // none, 0/1, 0/1/255, any byte
            const bool fused_c = checkasm_rand() % 4 == 0;
            const size_t area = (size_t)c.h * n;
            CheckasmBufs b; // luma 0..2, the masks back to back 3, weights 4..6
            for (int f = 0; f < 3; ++f) b.u8((size_t)c.h * c.pitch, c.pitch, c.w, c.h, c.i + f);
            b.u8(3 * area, 64);
            for (int f = 0; f < 3; ++f) b.u8((size_t)c.h * c.pitch, c.pitch);
            for (uint8_t *m = b.r<uint8_t>(3), *e = m + 3 * area; m < e && masks % 3; ++m)
                *m = masks == 1 ? *m & 1 : *m % 3 == 2 ? 255 : *m % 3;
            const std::vector<uint8_t> ones(area + 1, 1);
            // The merge's curves, or three random ones now and then (table ends and zero weights).
            uint8_t any[768];
            for (uint8_t &v : any) v = (uint8_t)checkasm_rand();
            const uint8_t *curves = c.i % 5 == 4 ? any : well_expose;
            b.run([&](const HdrDsp &d, bool o) {
                uint8_t *w[3] = {b.p<uint8_t>(4, o), b.p<uint8_t>(5, o), b.p<uint8_t>(6, o)};
                const uint8_t *l[3] = {b.p<uint8_t>(0, o), b.p<uint8_t>(1, o), b.p<uint8_t>(2, o)};
                const uint8_t *m[3] = {b.p<uint8_t>(3, o), b.p<uint8_t>(3, o, area), b.p<uint8_t>(3, o, 2 * area)};
                if (o) return (fused_c ? checkasm_ref() : d).fusion.weight_fused(w, l, c.pitch, masks ? m : nullptr, curves, c.w, c.h);
                for (int f = 0; f < 3; ++f)
                    d.fusion.weight_well_exposed(w[f], l[f], c.pitch, masks ? m[f] : ones.data(), curves + 256 * f, c.w, c.h);
                d.fusion.weight_normalize(w[0], w[1], w[2], c.pitch, c.w, c.h);
            }, c.i == 0 || c.i == 1, "weight_fused%s %dx%d pitch %d masks %d", fused_c ? "_c" : "", c.w, c.h,
               c.pitch, masks);
        }
    for (const auto &k : kReduces) {
        if (checkasm_check_func(opt.*k.h != ref.*k.h, "%s_reduce_h", k.name))
            for (const CheckasmSize c : CheckasmSizes(4160, 3120, 3, 1)) {
                const int n = (int)ceil8((unsigned)c.w >> 1);
                CheckasmBufs b; // the row pads are written 2 bytes before row 0
                const int src = b.u8(2 + (size_t)c.h * c.pitch, c.pitch, c.w, c.h, c.i, 2), dst = b.s16((size_t)c.h * n, n);
                b.run([&](const HdrDsp &d, bool o) {
                    (d.fusion.*k.h)(b.p<uint16_t>(dst, o), b.p<uint8_t>(src, o, 2), c.pitch, c.w, c.h);
                }, c.i == 2, "%s_reduce_h %dx%d pitch %d", k.name, c.w, c.h, c.pitch);
            }
        if (checkasm_check_func(opt.*k.v != ref.*k.v, "%s_reduce_v", k.name))
            for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 2)) {
                const int out_w = (int)ceil8(c.w);
                CheckasmBufs b;
                const int t = b.s16((size_t)2 * c.h * out_w, out_w, out_w, 2 * c.h, 0, k.max_sum, c.i);
                const int dst = b.u8((size_t)(c.h - 1) * c.pitch + out_w, c.pitch);
                b.run([&](const HdrDsp &d, bool o) {
                    row_ranges(o, c.h, [&](int y0, int y1) {
                        (d.fusion.*k.v)(b.p<uint8_t>(dst, o), c.pitch, b.p<uint16_t>(t, o, (size_t)reduce_v_first(y0) * out_w),
                                        out_w, c.h, y0, y1);
                    });
                }, c.i == 2, "%s_reduce_v %dx%d pitch %d", k.name, c.w, c.h, c.pitch);
            }
    }
    if (checkasm_check_func(opt.image_expand_h != ref.image_expand_h, "image_expand_h"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 1)) {
            // Rows spill into the next rows' place; the odd last column lies one
            // past the groups when w is a multiple of 16.
            const int dst_w = 2 * c.w + (int)(checkasm_rand() & 1), dp = (int)ceil8(dst_w);
            CheckasmBufs b;
            const int src = b.u8(1 + (size_t)c.h * c.pitch, c.pitch, c.w, c.h, c.i, 1);
            const int dst = b.s16((size_t)(c.h - 1) * dp + std::max(2 * (int)ceil16(c.w), dst_w), dp);
            b.run([&](const HdrDsp &d, bool o) {
                d.fusion.image_expand_h(b.p<uint16_t>(dst, o), b.p<uint8_t>(src, o, 1), c.pitch, c.w, c.h, dst_w);
            }, c.i == 3, "image_expand_h %dx%d to %d", c.w, c.h, dst_w);
        }
    if (checkasm_check_func(opt.image_band_v != ref.image_band_v, "image_band_v"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 4)) {
            const int w8 = (int)ceil8(c.w);
            CheckasmBufs b;
            const int g = b.u8((size_t)c.h * c.pitch, c.pitch, w8, c.h, c.i);
            const int hs = b.s16((size_t)(c.h >> 1) * w8, w8, w8, c.h >> 1, 0, 8 * 255, c.i + 1);
            const int band = b.s16((size_t)(c.h - 1) * c.pitch + w8, c.pitch);
            b.run([&](const HdrDsp &d, bool o) {
                row_ranges(o, c.h, [&](int y0, int y1) {
                    d.fusion.image_band_v(b.p<int16_t>(band, o), c.pitch, b.p<uint8_t>(g, o), c.pitch,
                                          b.p<uint16_t>(hs, o, (size_t)expand_v_first(y0) * w8), c.w, c.h, y0, y1);
                });
            }, c.i == 2, "image_band_v %dx%d pitch %d", c.w, c.h, c.pitch);
        }
    if (checkasm_check_func(opt.residual_copy != ref.residual_copy, "residual_copy"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 1)) {
            CheckasmBufs b;
            const int g = b.u8((size_t)c.h * c.pitch, c.pitch, c.w, c.h, c.i);
            const int dst = b.s16((size_t)(c.h - 1) * c.pitch + c.w, c.pitch);
            b.run([&](const HdrDsp &d, bool o) {
                d.fusion.residual_copy(b.p<int16_t>(dst, o), b.p<uint8_t>(g, o), c.pitch, c.w, c.h);
            }, false, "residual_copy %dx%d pitch %d", c.w, c.h, c.pitch);
        }
    if (checkasm_check_func(opt.band_blend != ref.band_blend, "band_blend"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 1)) {
            const int w8 = (int)ceil8(c.w);
            CheckasmBufs b; // bands 0..2, weights 3..5
            for (int f = 0; f < 3; ++f) bands(b, (size_t)(c.h - 1) * c.pitch + w8, c.pitch, w8, c.h, c.i + f);
            for (int f = 0; f < 3; ++f) b.u8((size_t)(c.h - 1) * c.pitch + w8, c.pitch, w8, c.h, c.i + f);
            b.run([&](const HdrDsp &d, bool o) {
                d.fusion.band_blend(b.p<int16_t>(0, o), b.p<int16_t>(1, o), b.p<int16_t>(2, o), c.pitch, b.p<uint8_t>(3, o),
                                    b.p<uint8_t>(4, o), b.p<uint8_t>(5, o), c.pitch, w8, c.h);
            }, c.i == 2, "band_blend %dx%d pitch %d", w8, c.h, c.pitch);
        }
    if (checkasm_check_func(opt.collapse_expand_h != ref.collapse_expand_h, "collapse_expand_h"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 1)) {
            const int dst_w = 2 * c.w + (int)(checkasm_rand() & 1), dp = (int)ceil8(dst_w);
            CheckasmBufs b;
            const int src = bands(b, 1 + (size_t)c.h * c.pitch, c.pitch, c.w, c.h, c.i, 1);
            const int dst = b.s16((size_t)(c.h - 1) * dp + std::max(2 * (int)ceil8(c.w), dst_w), dp);
            b.run([&](const HdrDsp &d, bool o) {
                d.fusion.collapse_expand_h(b.p<int16_t>(dst, o), b.p<int16_t>(src, o, 1), c.pitch, c.w, c.h, dst_w);
            }, c.i == 3, "collapse_expand_h %dx%d to %d", c.w, c.h, dst_w);
        }
    if (checkasm_check_func(opt.collapse_add_v != ref.collapse_add_v, "collapse_add_v"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 4)) {
            const int w8 = (int)ceil8(c.w);
            CheckasmBufs b;
            const int hs = bands(b, (size_t)(c.h >> 1) * w8, w8, w8, c.h >> 1, c.i);
            const int l = bands(b, (size_t)(c.h - 1) * c.pitch + w8, c.pitch, w8, c.h, c.i + 1);
            b.run([&](const HdrDsp &d, bool o) {
                row_ranges(o, c.h, [&](int y0, int y1) {
                    d.fusion.collapse_add_v(b.p<int16_t>(l, o), c.pitch, b.p<int16_t>(hs, o, (size_t)expand_v_first(y0) * w8),
                                            c.w, c.h, y0, y1);
                });
            }, c.i == 2, "collapse_add_v %dx%d pitch %d", c.w, c.h, c.pitch);
        }
}
