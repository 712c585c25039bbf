#include "checkasm/checkasm.h"
#include "checkasm/fusion_sizes.h"

static inline int ceil8i(int n) { return (n + 7) & ~7; }
static inline int ceil16i(int n) { return (n + 15) & ~15; }

// Expand of a w x h level to dst_w (2w or 2w + 1): pads written into the
// level, 2 ceil16(w) elements per row with the spill into the next rows,
// and the odd last column.
static void check_expand_h(const FusionDsp &ref, const FusionDsp &opt) {
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 1, 1);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int w = sizes[i].w, h = sizes[i].h, pitch = fusion_pitch(w);
        const int dst_w = 2 * w + (int)(checkasm_rand() & 1), dp = ceil8i(dst_w);
        CheckasmBuf s_ref, s_opt, d_ref, d_opt;
        fusion_level_u8(s_ref, 1, w, h, pitch, i);
        s_opt.copy_from(s_ref);
        // The odd last column lies one past the groups when w is a multiple of 16.
        const int last = 2 * ceil16i(w) > dst_w ? 2 * ceil16i(w) : dst_w;
        d_ref.alloc(32, ((size_t)(h - 1) * dp + last) * 2, 32);
        d_opt.copy_from(d_ref);
        ref.image_expand_h(d_ref.as<uint16_t>(), s_ref.data() + 1, pitch, w, h, dst_w);
        opt.image_expand_h(d_opt.as<uint16_t>(), s_opt.data() + 1, pitch, w, h, dst_w);
        if (checkasm_compare_blocks("padded level", s_ref, s_opt, pitch, 1)) s_opt.canaries_intact("padded level");
        if (checkasm_compare_blocks("expanded rows", d_ref, d_opt, (size_t)dp * 2, 2))
            d_opt.canaries_intact("expanded rows");
        if (i == 3)
            CHECKASM_BENCH2("image_expand_h 520x390",
                            ref.image_expand_h(d_ref.as<uint16_t>(), s_ref.data() + 1, pitch, w, h, dst_w),
                            opt.image_expand_h(d_opt.as<uint16_t>(), s_opt.data() + 1, pitch, w, h, dst_w));
    }
}

// Vertical expand and band of a w x h level (h >= 4) from h >> 1 scratch rows.
static void check_band_v(const FusionDsp &ref, const FusionDsp &opt) {
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 1, 4);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int w = sizes[i].w, h = sizes[i].h, pitch = fusion_pitch(w), w8 = ceil8i(w);
        CheckasmBuf g, hs, d_ref, d_opt;
        fusion_level_u8(g, 0, w8, h, pitch, i);
        hs.alloc(32, (size_t)(h >> 1) * w8 * 2, 32);
        checkasm_fill_s16(hs.as<int16_t>(), w8, w8, h >> 1, 0, 8 * 255, fusion_pattern(i + 1));
        d_ref.alloc(32, ((size_t)(h - 1) * pitch + w8) * 2, 32);
        d_opt.copy_from(d_ref);
        ref.image_band_v(d_ref.as<int16_t>(), pitch, g.data(), pitch, hs.as<uint16_t>(), w, h);
        opt.image_band_v(d_opt.as<int16_t>(), pitch, g.data(), pitch, hs.as<uint16_t>(), w, h);
        if (checkasm_compare_blocks("band", d_ref, d_opt, (size_t)pitch * 2, 2)) d_opt.canaries_intact("band");
        if (i == 2)
            CHECKASM_BENCH2("image_band_v 1040x780",
                            ref.image_band_v(d_ref.as<int16_t>(), pitch, g.data(), pitch, hs.as<uint16_t>(), w, h),
                            opt.image_band_v(d_opt.as<int16_t>(), pitch, g.data(), pitch, hs.as<uint16_t>(), w, h));
    }
}

static void check_residual(const FusionDsp &ref, const FusionDsp &opt) {
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 1, 1);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int w = sizes[i].w, h = sizes[i].h, pitch = fusion_pitch(w);
        CheckasmBuf g, d_ref, d_opt;
        fusion_level_u8(g, 0, w, h, pitch, i);
        d_ref.alloc(32, ((size_t)(h - 1) * pitch + w) * 2, 32);
        d_opt.copy_from(d_ref);
        ref.residual_copy(d_ref.as<int16_t>(), g.data(), pitch, w, h);
        opt.residual_copy(d_opt.as<int16_t>(), g.data(), pitch, w, h);
        if (checkasm_compare_blocks("residual", d_ref, d_opt, (size_t)pitch * 2, 2))
            d_opt.canaries_intact("residual");
    }
}

CHECKASM_TEST(laplacian) {
    const HdrDsp &ref = checkasm_ref(), &opt = checkasm_opt();
    if (checkasm_check_func(opt.fusion.image_reduce_h != ref.fusion.image_reduce_h, "image_reduce_h"))
        check_reduce_h("image_reduce_h 1040x780", ref.fusion.image_reduce_h, opt.fusion.image_reduce_h);
    if (checkasm_check_func(opt.fusion.image_reduce_v != ref.fusion.image_reduce_v, "image_reduce_v"))
        check_reduce_v("image_reduce_v 1040x780", ref.fusion.image_reduce_v, opt.fusion.image_reduce_v,
                       16 * 255);
    if (checkasm_check_func(opt.fusion.image_expand_h != ref.fusion.image_expand_h, "image_expand_h"))
        check_expand_h(ref.fusion, opt.fusion);
    if (checkasm_check_func(opt.fusion.image_band_v != ref.fusion.image_band_v, "image_band_v"))
        check_band_v(ref.fusion, opt.fusion);
    if (checkasm_check_func(opt.fusion.residual_copy != ref.fusion.residual_copy, "residual_copy"))
        check_residual(ref.fusion, opt.fusion);
}
