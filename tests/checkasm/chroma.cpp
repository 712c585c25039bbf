// Kernels of the chroma pyramid and its reconstruction: in-place pads, slack,
// the spill of a row's last step onto the next row, and 16-bit wrapping.
// Sizes are in pairs x rows; the luma width w of a level is 2 pairs, or one
// more for an odd parent, and sets the driver's pitch.
#include <algorithm>

#include "checkasm/checkasm.h"
#include "common/arith.h"

namespace {

const int kGuard = 16; // bytes before row 0 of a level buffer

struct Level {
    int i, pairs, rows, w, stride, coarse_stride;
    Level(const CheckasmSize &c) : i(c.i), pairs(c.w), rows(c.h) { set_width(2 * c.w + (int)(checkasm_rand() & 1)); }
    void set_width(int width) { w = width, stride = level_chroma_stride(w, 0), coarse_stride = level_chroma_stride(w, 1); }
};

} // namespace

CHECKASM_TEST(chroma) {
    const ChromaDsp &ref = checkasm_ref().chroma, &opt = checkasm_opt().chroma;
    if (checkasm_check_func(opt.copy_flip != ref.copy_flip, "chroma_copy_flip"))
        for (Level c : CheckasmSizes(2080, 1560, 1, 1)) {
            const int bytes = 2 * c.pairs, span = ((c.rows + 1) & ~1) - 1, sstride = bytes + 8 * checkasm_rand_range(0, 3);
            CheckasmBufs b;
            const int src = b.u8((size_t)span * sstride + bytes, sstride, bytes, c.rows, c.i);
            const int dst = b.u8((size_t)span * c.stride + ceil16(bytes), c.stride);
            b.run([&](const HdrDsp &d, bool o) {
                d.chroma.copy_flip(b.p<int8_t>(dst, o), c.stride, b.p<uint8_t>(src, o), sstride, bytes, c.rows);
            }, c.i == 0, "copy_flip %dx%d", c.pairs, c.rows);
        }
    if (checkasm_check_func(opt.reduce_h != ref.reduce_h || opt.reduce_v != ref.reduce_v, "chroma_reduce"))
        for (Level c : CheckasmSizes(2080, 1560, 1, 2)) {
            // Horizontal half: reads up to 2 * out_values + 3 bytes of a row.
            const int out_values = (int)ceil8(2u * (unsigned)(c.pairs >> 1)), crows = c.rows >> 1, trows = std::max(2 * crows, 3);
            CheckasmBufs b;
            const int g = b.u8(kGuard + (size_t)(c.rows - 1) * c.stride + 2 * out_values + 24,
                               c.stride, 2 * c.pairs, c.rows, c.i, kGuard);
            const int t = b.s16((size_t)c.rows * out_values, out_values);
            if (!b.run([&](const HdrDsp &d, bool o) {
                    d.chroma.reduce_h(b.p<int16_t>(t, o), b.p<int8_t>(g, o, kGuard), c.stride, c.pairs, c.rows);
                }, c.i == 0, "reduce_h %dx%d", c.pairs, c.rows))
                break;
            // Vertical half on its own inputs: the whole range of t.
            CheckasmBufs v;
            const int tv = v.s16((size_t)trows * out_values, out_values, out_values, trows, -2048, 2032, c.i + 1);
            const int coarse = v.u8((size_t)(crows - 1) * c.coarse_stride + out_values, c.coarse_stride);
            v.run([&](const HdrDsp &d, bool o) {
                row_ranges(o, crows, [&](int y0, int y1) {
                    d.chroma.reduce_v(v.p<int8_t>(coarse, o), c.coarse_stride, v.p<int16_t>(tv, o, (size_t)reduce_v_first(y0) * out_values),
                                      2 * (c.pairs >> 1), crows, y0, y1);
                });
            }, c.i == 0, "reduce_v %dx%d", c.pairs, c.rows);
        }
    if (checkasm_check_func(opt.expand_h != ref.expand_h || opt.expand_band != ref.expand_band, "chroma_expand"))
        for (Level c : CheckasmSizes(2080, 1560, 2, 2)) {
            // The coarser level (pairs >> 1, rows >> 1) expanded back to c, then the band against c.
            const int sp = c.pairs >> 1, srows = c.rows >> 1, pitch = (int)ceil8(2u * (unsigned)c.pairs);
            CheckasmBufs b;
            const int q = b.u8(kGuard + (size_t)(srows - 1) * c.coarse_stride + ceil16(2u * sp) + 24,
                               c.coarse_stride, 2 * sp, srows, c.i, kGuard);
            const int h = b.s16((size_t)(srows - 1) * pitch + std::max(2 * (int)ceil16(2u * (unsigned)sp), 2 * c.pairs), pitch);
            if (!b.run([&](const HdrDsp &d, bool o) {
                    d.chroma.expand_h(b.p<int16_t>(h, o), b.p<int8_t>(q, o, kGuard), c.coarse_stride, sp, srows, c.pairs);
                }, c.i == 0, "expand_h %dx%d", c.pairs, c.rows))
                break;
            CheckasmBufs e;
            const int hv = e.s16((size_t)srows * pitch, pitch, pitch, srows, -1024, 1016, c.i + 2);
            const int g = e.u8((size_t)c.rows * c.stride, c.stride, c.stride, c.rows, c.i + 3);
            const int band = e.s16((size_t)(c.rows - 1) * c.stride + pitch, c.stride);
            e.run([&](const HdrDsp &d, bool o) {
                row_ranges(o, c.rows, [&](int y0, int y1) {
                    d.chroma.expand_band(e.p<int16_t>(band, o), c.stride, e.p<int8_t>(g, o), c.stride,
                                         e.p<int16_t>(hv, o, (size_t)expand_v_first(y0) * pitch), 2 * c.pairs, c.rows, c.i & 1, y0, y1);
                });
            }, c.i == 0, "expand_band %dx%d zero edges %d", c.pairs, c.rows, c.i & 1);
        }
    if (checkasm_check_func(opt.residual != ref.residual, "chroma_residual"))
        for (Level c : CheckasmSizes(2080, 1560, 1, 1)) {
            CheckasmBufs b;
            const int g = b.u8((size_t)c.rows * c.stride, c.stride, c.stride, c.rows, c.i);
            const int r = b.s16((size_t)(c.rows - 1) * c.stride + 2 * c.pairs, c.stride);
            b.run([&](const HdrDsp &d, bool o) {
                d.chroma.residual(b.p<int16_t>(r, o), c.stride, b.p<int8_t>(g, o), c.stride, 2 * c.pairs, c.rows);
            }, false, "residual %dx%d", c.pairs, c.rows);
        }
    if (checkasm_check_func(opt.blend != ref.blend, "chroma_blend"))
        for (Level c : CheckasmSizes(2080, 1560, 1, 2)) {
            // Every third level of width 2 mod 16, where a row's last step lands on the next row.
            if (c.i % 3 == 2 && c.pairs > 8) c.set_width((c.w & ~15) + 2), c.pairs = c.w >> 1;
            const int wstride = level_row_stride(c.pairs, 0), values = 2 * (int)ceil8((unsigned)c.pairs);
            CheckasmBufs b; // bands 0..2 over the full 16-bit range, weights 3..5
            for (int f = 0; f < 3; ++f) b.s16((size_t)(c.rows - 1) * c.stride + values, c.stride,
                      std::min(values, c.stride), c.rows, -32768, 32767, c.i + f);
            for (int f = 0; f < 3; ++f) b.u8((size_t)(c.rows - 1) * wstride + ceil8(c.pairs),
                      wstride, (int)ceil8(c.pairs), c.rows, c.i + 3 + f);
            b.run([&](const HdrDsp &d, bool o) {
                d.chroma.blend(b.p<int16_t>(0, o), b.p<int16_t>(1, o), b.p<int16_t>(2, o), c.stride, b.p<uint8_t>(3, o),
                               b.p<uint8_t>(4, o), b.p<uint8_t>(5, o), wstride, c.pairs, c.rows);
            }, c.i == 0, "blend %dx%d pitch %d", c.pairs, c.rows, c.stride);
        }
    if (checkasm_check_func(opt.collapse_h != ref.collapse_h || opt.collapse_v != ref.collapse_v, "chroma_collapse"))
        for (Level c : CheckasmSizes(2080, 1560, 2, 2)) {
            // Collapse of the coarser level (pairs >> 1, rows >> 1) into c; values
            // anywhere in 16 bits, where the sums wrap.
            const int sp = c.pairs >> 1, srows = c.rows >> 1, ss = c.coarse_stride, guard = 8;
            const int pitch = (int)ceil8(2u * (unsigned)c.pairs), svalues = (int)ceil8(2u * (unsigned)sp);
            const int lo = (c.i & 1) ? -32768 : -600, hi = (c.i & 1) ? 32767 : 600;
            CheckasmBufs b;
            const int q = b.s16(guard + (size_t)(srows - 1) * ss + svalues + 16, ss, ss, srows, lo, hi, c.i, guard);
            const int h = b.s16((size_t)(srows - 1) * pitch + std::max(2 * svalues, 2 * c.pairs), pitch);
            if (!b.run([&](const HdrDsp &d, bool o) {
                    d.chroma.collapse_h(b.p<int16_t>(h, o), b.p<int16_t>(q, o, guard), ss, sp, srows, c.pairs);
                }, c.i == 0, "collapse_h %dx%d", c.pairs, c.rows))
                break;
            CheckasmBufs v;
            const int hv = v.s16((size_t)srows * pitch, pitch, pitch, srows, lo, hi, c.i + 1);
            const int dst = v.s16((size_t)(c.rows - 1) * c.stride + pitch, c.stride, pitch, c.rows, lo, hi, c.i + 2);
            v.run([&](const HdrDsp &d, bool o) {
                row_ranges(o, c.rows, [&](int y0, int y1) {
                    d.chroma.collapse_v(v.p<int16_t>(dst, o), c.stride, v.p<int16_t>(hv, o, (size_t)expand_v_first(y0) * pitch),
                                        2 * c.pairs, c.rows, y0, y1);
                });
            }, c.i == 0, "collapse_v %dx%d", c.pairs, c.rows);
        }
}
