// Kernels of registration (bitmap rows, shifted-row error counts) and of the
// ghost stage (threshold mask of a row pair, the motion rows).
#include "checkasm/checkasm.h"

namespace {

void fill_words(uint32_t *p, size_t n, int kind) {
    for (size_t i = 0; i < n; ++i)
        p[i] = kind == 0 ? checkasm_rand() : kind == 1 ? ~0u : kind == 2 ? 0 :
               (i & 1) ? 0xAAAAAAAAu : checkasm_rand() & checkasm_rand();
}

} // namespace

CHECKASM_TEST(registration) {
    const RegDsp &ref = checkasm_ref().reg, &opt = checkasm_opt().reg;
    for (int L = 0; L < 6; ++L)
        if (checkasm_check_func(opt.bitmap_row[L] != ref.bitmap_row[L], "bitmap_row_l%d", L))
            for (const CheckasmSize c : CheckasmSizes(3072 >> L, 1, 0, 1)) {
                // Medians where the tolerance switches, the extremes, and one random.
                const int medians[] = {0, 4, 5, 250, 251, 255, (int)(checkasm_rand() & 255)};
                for (int k = 0; k < 7; ++k) {
                    const uint8_t med = (uint8_t)medians[k], tol = (med <= 4 || med >= 251) ? 1 : 4;
                    CheckasmBufs b;
                    const int src = b.u8(((size_t)c.w << L) + 1, 64, (c.w << L) + 1, 1, c.i + k);
                    const int dst = b.add(((c.w + 31) >> 5) * 8, 8, 4);
                    if (!b.run([&](const HdrDsp &d, bool o) {
                            d.reg.bitmap_row[L](b.p<uint8_t>(src, o), c.w, med, tol, b.p<uint32_t>(dst, o));
                        }, c.i == 0 && k == 0, "bitmap_row_l%d width %d median %d", L, c.w, med))
                        break;
                }
            }
    if (checkasm_check_func(opt.bitmap_row_error != ref.bitmap_row_error, "bitmap_row_error"))
        for (const CheckasmSize c : CheckasmSizes(97, 1, 1, 1))
            for (int kind = 0; kind < 4; ++kind)
                for (unsigned shift = 0; shift < 32 && !checkasm_failed_current(); ++shift) {
                    const unsigned ww = (unsigned)c.w;
                    const bool store = shift & 1;
                    CheckasmBufs b;
                    const int fixed = b.add(ww * 8, 8, 4), moving = b.add((ww + 1) * 8, 8, 4);
                    const int diff = b.add(ww * 4, ww * 4, 4), err = b.add(4, 4, 4);
                    fill_words(b.r<uint32_t>(fixed), ww * 2, kind);
                    fill_words(b.r<uint32_t>(moving), (ww + 1) * 2, (kind + shift) & 3);
                    b.run([&](const HdrDsp &d, bool o) {
                        *b.p<uint32_t>(err, o) = d.reg.bitmap_row_error(b.p<uint32_t>(fixed, o), b.p<uint32_t>(moving, o), ww,
                                                                        shift, store ? b.p<uint32_t>(diff, o) : nullptr);
                    }, c.i == 0 && kind == 0 && shift < 2, "bitmap_row_error %u words shift %u kind %d", ww, shift, kind);
                }
}

CHECKASM_TEST(ghost) {
    const GhostDsp &ref = checkasm_ref().ghost, &opt = checkasm_opt().ghost;
    if (checkasm_check_func(opt.mask_rows != ref.mask_rows, "mask_rows"))
        for (const CheckasmSize c : CheckasmSizes(4160, 1, 0, 1)) {
            const int w = c.w, src_stride = w + checkasm_rand_range(0, 40);
            const uint8_t thresholds[] = {0, 1, 128, 255, (uint8_t)checkasm_rand()};
            for (int k = 0; k < 5; ++k) {
                // Packed mask rows as the stage writes them, or a padded pitch.
                const int ds = w + (k & 1) * 7;
                CheckasmBufs b;
                const int src = b.u8((size_t)src_stride * 2, src_stride, w, 2, c.i + k), dst = b.u8((size_t)ds + w, ds);
                if (!b.run([&](const HdrDsp &d, bool o) {
                        d.ghost.mask_rows(b.p<uint8_t>(src, o), src_stride, b.p<uint8_t>(dst, o), ds, (unsigned)w, thresholds[k]);
                    }, c.i == 0 && k == 4, "mask_rows width %d pitch %d threshold %d", w, ds, thresholds[k]))
                    break;
            }
        }
    // Random tables and bounds are valid rules, so every branch and extreme
    // comes up; every rule pair in turn.
    if (checkasm_check_func(opt.motion_row != ref.motion_row, "motion_row"))
        for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 1)) {
            const int w = c.w, pitch = c.pitch, rows = c.h < 3 ? c.h : 3;
            CheckasmBufs b;
            const int src = b.u8((size_t)pitch * 3 * rows, pitch, w, 3 * rows, c.i);
            const int dst = b.u8((size_t)pitch * 3 * rows, pitch), mask = b.u8((size_t)w * 3 * rows, w);
            const int rules = b.u8(sizeof(MotionRules), 16), count = b.add(4, 4, 4);
            MotionRules *r = b.r<MotionRules>(rules);
            r->le_rule = (uint8_t)((c.i + 1) % 4), r->he_rule = (uint8_t)((c.i / 4 + 1) % 3); // timed: both on
            if (c.i % 5 == 1) r->le_cut.inclusive = r->he_cut.inclusive = 0;
            b.run([&](const HdrDsp &d, bool o) {
                uint32_t n = 0;
                for (int y = 0; y < rows; ++y) {
                    uint8_t *dp[3], *mp[3];
                    const uint8_t *sp[3];
                    for (int f = 0; f < 3; ++f) {
                        sp[f] = b.p<uint8_t>(src, o, (size_t)(3 * y + f) * pitch);
                        dp[f] = b.p<uint8_t>(dst, o, (size_t)(3 * y + f) * pitch);
                        mp[f] = b.p<uint8_t>(mask, o, (size_t)(3 * y + f) * w);
                    }
                    n += d.ghost.motion_row(dp, sp, mp, (unsigned)w, b.p<MotionRules>(rules, o));
                }
                *b.p<uint32_t>(count, o) = n;
            }, c.i == 0, "motion_row width %d rules %d %d", w, r->le_rule, r->he_rule);
        }
}
