#include "checkasm/checkasm.h"
#include "checkasm/fusion_sizes.h"

static inline int ceil8i(int n) { return (n + 7) & ~7; }

// Band values: the real range most of the time, the whole 16-bit range
// (where the sums wrap) otherwise.
static void fill_bands(int16_t *p, int stride, int w, int h, int i) {
    bool full = i % 3 == 2;
    checkasm_fill_s16(p, stride, w, h, full ? -32768 : -512, full ? 32767 : 511, fusion_pattern(i));
}

static void check_blend(const FusionDsp &ref, const FusionDsp &opt) {
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 1, 1);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int w8 = ceil8i(sizes[i].w), h = sizes[i].h, pitch = fusion_pitch(sizes[i].w);
        const size_t band_bytes = ((size_t)(h - 1) * pitch + w8) * 2;
        CheckasmBuf b_ref, b_opt, b1, b2, wt[3];
        b_ref.alloc(32, band_bytes, 32);
        b1.alloc(32, band_bytes, 32);
        b2.alloc(32, band_bytes, 32);
        fill_bands(b_ref.as<int16_t>(), pitch, w8, h, i);
        fill_bands(b1.as<int16_t>(), pitch, w8, h, i + 1);
        fill_bands(b2.as<int16_t>(), pitch, w8, h, i + 2);
        b_opt.copy_from(b_ref);
        for (int f = 0; f < 3; ++f) {
            wt[f].alloc(32, (size_t)(h - 1) * pitch + w8, 32);
            checkasm_fill_u8(wt[f].data(), pitch, w8, h, fusion_pattern(i + f));
        }
        ref.band_blend(b_ref.as<int16_t>(), b1.as<int16_t>(), b2.as<int16_t>(), pitch, wt[0].data(),
                       wt[1].data(), wt[2].data(), pitch, w8, h);
        opt.band_blend(b_opt.as<int16_t>(), b1.as<int16_t>(), b2.as<int16_t>(), pitch, wt[0].data(),
                       wt[1].data(), wt[2].data(), pitch, w8, h);
        if (checkasm_compare_blocks("blend", b_ref, b_opt, (size_t)pitch * 2, 2)) b_opt.canaries_intact("blend");
        if (i == 2)
            CHECKASM_BENCH2("band_blend 1040x780",
                            ref.band_blend(b_ref.as<int16_t>(), b1.as<int16_t>(), b2.as<int16_t>(), pitch,
                                           wt[0].data(), wt[1].data(), wt[2].data(), pitch, w8, h),
                            opt.band_blend(b_opt.as<int16_t>(), b1.as<int16_t>(), b2.as<int16_t>(), pitch,
                                           wt[0].data(), wt[1].data(), wt[2].data(), pitch, w8, h));
    }
}

static void check_collapse_expand_h(const FusionDsp &ref, const FusionDsp &opt) {
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 1, 1);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int w = sizes[i].w, h = sizes[i].h, pitch = fusion_pitch(w);
        const int dst_w = 2 * w + (int)(checkasm_rand() & 1), dp = ceil8i(dst_w);
        CheckasmBuf s_ref, s_opt, d_ref, d_opt;
        s_ref.alloc(32, (1 + (size_t)h * pitch) * 2, 64);
        fill_bands(s_ref.as<int16_t>(2), pitch, w, h, i);
        s_opt.copy_from(s_ref);
        const int last = 2 * ceil8i(w) > dst_w ? 2 * ceil8i(w) : dst_w;
        d_ref.alloc(32, ((size_t)(h - 1) * dp + last) * 2, 32);
        d_opt.copy_from(d_ref);
        ref.collapse_expand_h(d_ref.as<int16_t>(), s_ref.as<int16_t>(2), pitch, w, h, dst_w);
        opt.collapse_expand_h(d_opt.as<int16_t>(), s_opt.as<int16_t>(2), pitch, w, h, dst_w);
        if (checkasm_compare_blocks("padded level", s_ref, s_opt, (size_t)pitch * 2, 2))
            s_opt.canaries_intact("padded level");
        if (checkasm_compare_blocks("expanded rows", d_ref, d_opt, (size_t)dp * 2, 2))
            d_opt.canaries_intact("expanded rows");
        if (i == 3)
            CHECKASM_BENCH2("collapse_expand_h 520x390",
                            ref.collapse_expand_h(d_ref.as<int16_t>(), s_ref.as<int16_t>(2), pitch, w, h, dst_w),
                            opt.collapse_expand_h(d_opt.as<int16_t>(), s_opt.as<int16_t>(2), pitch, w, h, dst_w));
    }
}

static void check_collapse_add_v(const FusionDsp &ref, const FusionDsp &opt) {
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 1, 4);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int w = sizes[i].w, h = sizes[i].h, pitch = fusion_pitch(w), w8 = ceil8i(w);
        CheckasmBuf hs, l_ref, l_opt;
        hs.alloc(32, (size_t)(h >> 1) * w8 * 2, 32);
        fill_bands(hs.as<int16_t>(), w8, w8, h >> 1, i);
        l_ref.alloc(32, ((size_t)(h - 1) * pitch + w8) * 2, 32);
        fill_bands(l_ref.as<int16_t>(), pitch, w8, h, i + 1);
        l_opt.copy_from(l_ref);
        ref.collapse_add_v(l_ref.as<int16_t>(), pitch, hs.as<int16_t>(), w, h);
        opt.collapse_add_v(l_opt.as<int16_t>(), pitch, hs.as<int16_t>(), w, h);
        if (checkasm_compare_blocks("collapsed level", l_ref, l_opt, (size_t)pitch * 2, 2))
            l_opt.canaries_intact("collapsed level");
        if (i == 2)
            CHECKASM_BENCH2("collapse_add_v 1040x780",
                            ref.collapse_add_v(l_ref.as<int16_t>(), pitch, hs.as<int16_t>(), w, h),
                            opt.collapse_add_v(l_opt.as<int16_t>(), pitch, hs.as<int16_t>(), w, h));
    }
}

CHECKASM_TEST(reconstruct) {
    const HdrDsp &ref = checkasm_ref(), &opt = checkasm_opt();
    if (checkasm_check_func(opt.fusion.band_blend != ref.fusion.band_blend, "band_blend"))
        check_blend(ref.fusion, opt.fusion);
    if (checkasm_check_func(opt.fusion.collapse_expand_h != ref.fusion.collapse_expand_h, "collapse_expand_h"))
        check_collapse_expand_h(ref.fusion, opt.fusion);
    if (checkasm_check_func(opt.fusion.collapse_add_v != ref.fusion.collapse_add_v, "collapse_add_v"))
        check_collapse_add_v(ref.fusion, opt.fusion);
}
