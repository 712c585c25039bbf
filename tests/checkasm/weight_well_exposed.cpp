#include "checkasm/checkasm.h"
#include "checkasm/fusion_sizes.h"
#include "varo_hdr.h"

CHECKASM_TEST(weight_well_exposed) {
    const HdrDsp &ref = checkasm_ref(), &opt = checkasm_opt();
    if (!checkasm_check_func(opt.fusion.weight_well_exposed != ref.fusion.weight_well_exposed,
                             "weight_well_exposed"))
        return;
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 1, 1);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int w = sizes[i].w, h = sizes[i].h, stride = fusion_pitch(w);
        const int n = w & ~7;
        CheckasmBuf luma, mask, d_ref, d_opt;
        luma.alloc(32, (size_t)h * stride, 32);
        mask.alloc(32, (size_t)h * n, 32);
        d_ref.alloc(32, (size_t)h * stride, 32);
        d_opt.copy_from(d_ref);
        checkasm_fill_u8(luma.data(), stride, w, h, fusion_pattern(i));
        // Mostly 0/1 as the motion stage writes; sometimes any byte, where
        // the product saturates.
        if (i % 3) {
            uint8_t *m = mask.data();
            for (size_t k = 0; k < mask.size; ++k) m[k] &= 1;
        }
        const uint8_t *curve = well_expose + 256 * (i % 3);
        ref.fusion.weight_well_exposed(d_ref.data(), luma.data(), stride, mask.data(), curve, w, h);
        opt.fusion.weight_well_exposed(d_opt.data(), luma.data(), stride, mask.data(), curve, w, h);
        if (checkasm_compare_blocks("weight map", d_ref, d_opt, stride, 1))
            d_opt.canaries_intact("weight map");
        if (i == 2)
            CHECKASM_BENCH2("weight_well_exposed 1040x780",
                            ref.fusion.weight_well_exposed(d_ref.data(), luma.data(), stride, mask.data(), curve, w, h),
                            opt.fusion.weight_well_exposed(d_opt.data(), luma.data(), stride, mask.data(), curve, w, h));
    }
}
