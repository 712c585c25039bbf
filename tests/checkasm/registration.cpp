// Registration kernels: bitmap rows and shifted-row error counts.
#include <stdio.h>

#include "checkasm/checkasm.h"

namespace {

void check_bitmap_row() {
    const HdrDsp &ref = checkasm_ref();
    const HdrDsp &opt = checkasm_opt();
    for (int L = 0; L < 6; ++L) {
        if (!checkasm_check_func(opt.reg.bitmap_row[L] != ref.reg.bitmap_row[L], "bitmap_row_l%d", L))
            continue;
        int widths[64];
        int n = checkasm_widths(widths, 400);
        widths[n++] = 3072 >> L; // level width of the largest crop
        widths[n++] = 0;
        for (int wi = 0; wi < n && !checkasm_failed_current(); ++wi) {
            const unsigned w = (unsigned)widths[wi];
            const size_t pairs = (w + 31) >> 5;
            for (int pat = 0; pat < PAT_COUNT; ++pat) {
                CheckasmBuf src;
                src.alloc(0, ((size_t)w << L) + 1, 16);
                checkasm_fill_u8(src.data(), (ptrdiff_t)src.size, (int)src.size, 1,
                                 (CheckasmPattern)pat);
                // Medians where the tolerance switches, the extremes, and one random.
                const uint8_t medians[] = {0, 4, 5, 250, 251, 255, (uint8_t)checkasm_rand()};
                for (uint8_t med : medians) {
                    const uint8_t tol = (med <= 4 || med >= 251) ? 1 : 4;
                    CheckasmBuf a, b;
                    a.alloc(32, pairs * 8, 32);
                    b.copy_from(a);
                    ref.reg.bitmap_row[L](src.data(), w, med, tol, a.as<uint32_t>());
                    opt.reg.bitmap_row[L](src.data(), w, med, tol, b.as<uint32_t>());
                    if (!checkasm_compare_blocks("bitmap_row", a, b, 8, 4) ||
                        !b.canaries_intact("bitmap_row")) {
                        printf("  level %d width %u pattern %d median %d\n", L, w, pat, med);
                        break;
                    }
                }
            }
        }
        const unsigned w = 3072 >> L;
        CheckasmBuf src, a, b;
        src.alloc(0, (size_t)w << L, 0);
        a.alloc(0, ((w + 31) >> 5) * 8, 0);
        b.copy_from(a);
        CHECKASM_BENCH2("bitmap_row", ref.reg.bitmap_row[L](src.data(), w, 100, 4, a.as<uint32_t>()),
                        opt.reg.bitmap_row[L](src.data(), w, 100, 4, b.as<uint32_t>()));
    }
}

void fill_words(uint32_t *p, size_t n, int kind) {
    for (size_t i = 0; i < n; ++i) {
        switch (kind) {
        case 0: p[i] = checkasm_rand(); break;
        case 1: p[i] = 0xFFFFFFFFu; break;
        case 2: p[i] = 0; break;
        default: p[i] = (i & 1) ? 0xAAAAAAAAu : checkasm_rand() & checkasm_rand(); break;
        }
    }
}

void check_bitmap_row_error() {
    const HdrDsp &ref = checkasm_ref();
    const HdrDsp &opt = checkasm_opt();
    if (!checkasm_check_func(opt.reg.bitmap_row_error != ref.reg.bitmap_row_error,
                             "bitmap_row_error"))
        return;
    int widths[64];
    int n = checkasm_widths(widths, 120);
    widths[n++] = 97; // level 0 of the largest crop
    for (int wi = 0; wi < n && !checkasm_failed_current(); ++wi) {
        const unsigned ww = (unsigned)widths[wi];
        for (int kind = 0; kind < 4; ++kind)
            for (unsigned shift = 0; shift < 32; ++shift) {
                CheckasmBuf fixed, moving;
                fixed.alloc(0, ww * 8, 0);
                moving.alloc(0, (ww + 1) * 8, 0);
                fill_words(fixed.as<uint32_t>(), ww * 2, kind);
                fill_words(moving.as<uint32_t>(), (ww + 1) * 2, (kind + shift) & 3);
                CheckasmBuf da, db;
                da.alloc(32, ww * 4, 32);
                db.copy_from(da);
                const bool store = shift & 1;
                const uint32_t ea = ref.reg.bitmap_row_error(
                    fixed.as<uint32_t>(), moving.as<uint32_t>(), ww, shift,
                    store ? da.as<uint32_t>() : nullptr);
                const uint32_t eb = opt.reg.bitmap_row_error(
                    fixed.as<uint32_t>(), moving.as<uint32_t>(), ww, shift,
                    store ? db.as<uint32_t>() : nullptr);
                if (ea != eb) {
                    checkasm_fail("bitmap_row_error");
                    printf("  width_words %u shift %u kind %d: %u vs %u\n", ww, shift, kind, ea, eb);
                }
                if (!checkasm_compare_blocks("bitmap_row_error diff", da, db, ww * 4, 4) ||
                    !db.canaries_intact("bitmap_row_error diff"))
                    printf("  width_words %u shift %u kind %d\n", ww, shift, kind);
            }
    }
    CheckasmBuf fixed, moving, d;
    fixed.alloc(0, 97 * 8, 0);
    moving.alloc(0, 98 * 8, 0);
    d.alloc(0, 97 * 4, 0);
    volatile uint32_t sink = 0;
    CHECKASM_BENCH2("bitmap_row_error",
                    sink = sink + ref.reg.bitmap_row_error(fixed.as<uint32_t>(), moving.as<uint32_t>(), 97, 5, nullptr),
                    sink = sink + opt.reg.bitmap_row_error(fixed.as<uint32_t>(), moving.as<uint32_t>(), 97, 5, nullptr));
    CHECKASM_BENCH2("bitmap_row_error_aligned",
                    sink = sink + ref.reg.bitmap_row_error(fixed.as<uint32_t>(), moving.as<uint32_t>(), 97, 0, d.as<uint32_t>()),
                    sink = sink + opt.reg.bitmap_row_error(fixed.as<uint32_t>(), moving.as<uint32_t>(), 97, 0, d.as<uint32_t>()));
}

} // namespace

CHECKASM_TEST(registration) {
    check_bitmap_row();
    check_bitmap_row_error();
}
