// Ghost-detection kernels: the threshold mask of a row pair.
#include <stdio.h>

#include "checkasm/checkasm.h"

CHECKASM_TEST(ghost) {
    const HdrDsp &ref = checkasm_ref();
    const HdrDsp &opt = checkasm_opt();
    if (!checkasm_check_func(opt.ghost.mask_rows != ref.ghost.mask_rows, "mask_rows")) return;
    int widths[64];
    const int n = checkasm_widths(widths, 4160);
    for (int wi = 0; wi < n && !checkasm_failed_current(); ++wi) {
        const int w = widths[wi];
        const int src_stride = w + checkasm_rand_range(0, 40);
        // Packed mask rows as the stage writes them, and a padded pitch.
        const int dst_strides[2] = {w, w + 7};
        for (int ds : dst_strides)
            for (int pat = 0; pat < PAT_COUNT; ++pat) {
                CheckasmBuf src;
                src.alloc(0, (size_t)src_stride * 2, 0);
                checkasm_fill_u8(src.data(), src_stride, w, 2, (CheckasmPattern)pat);
                const uint8_t thresholds[] = {0, 1, 128, 255, (uint8_t)checkasm_rand()};
                for (uint8_t thr : thresholds) {
                    CheckasmBuf a, b;
                    a.alloc(32, (size_t)ds + w, 32);
                    b.copy_from(a);
                    ref.ghost.mask_rows(src.data(), src_stride, a.data(), ds, (unsigned)w, thr);
                    opt.ghost.mask_rows(src.data(), src_stride, b.data(), ds, (unsigned)w, thr);
                    if (!checkasm_compare_blocks("mask_rows", a, b, (size_t)ds, 1) ||
                        !b.canaries_intact("mask_rows")) {
                        printf("  width %d dst_stride %d pattern %d threshold %d\n", w, ds, pat, thr);
                        break;
                    }
                }
            }
    }
    CheckasmBuf src, a, b;
    src.alloc(0, 4160 * 2, 0);
    a.alloc(0, 4160 * 2, 0);
    b.copy_from(a);
    CHECKASM_BENCH2("mask_rows", ref.ghost.mask_rows(src.data(), 4160, a.data(), 4160, 4160, 90),
                    opt.ghost.mask_rows(src.data(), 4160, b.data(), 4160, 4160, 90));
}
