#include "checkasm/checkasm.h"
#include "checkasm/fusion_sizes.h"

// Weight triples where the reciprocal and the saturation break: all zero, a
// lone weight, equal pairs, maxima, sums of exactly 256.
static void fill_weights(uint8_t *w[3], int stride, int width, int height, int kind) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint8_t *p[3] = {w[0] + y * stride + x, w[1] + y * stride + x, w[2] + y * stride + x};
            int mode = kind == 0 ? (int)(checkasm_rand() % 6) : kind;
            int a = (int)(checkasm_rand() & 255), b = (int)(checkasm_rand() & 255);
            switch (mode) {
            case 1: *p[0] = *p[1] = *p[2] = 0; break;
            case 2: *p[0] = (uint8_t)a; *p[1] = *p[2] = 0; break;
            case 3: *p[0] = *p[1] = (uint8_t)a; *p[2] = 0; break;
            case 4: *p[0] = *p[1] = *p[2] = 255; break;
            case 5: *p[0] = (uint8_t)(a & 127); *p[1] = (uint8_t)(b & 127); *p[2] = (uint8_t)(256 - *p[0] - *p[1] > 255 ? 255 : 256 - *p[0] - *p[1]); break;
            default: *p[0] = (uint8_t)a; *p[1] = (uint8_t)b; *p[2] = (uint8_t)checkasm_rand(); break;
            }
            if (checkasm_rand() & 1) { uint8_t t = *p[0]; *p[0] = *p[2]; *p[2] = t; }
        }
}

CHECKASM_TEST(weight_normalize) {
    const HdrDsp &ref = checkasm_ref(), &opt = checkasm_opt();
    if (!checkasm_check_func(opt.fusion.weight_normalize != ref.fusion.weight_normalize,
                             "weight_normalize"))
        return;
    FusionSize sizes[96];
    int count = fusion_sizes(sizes, 1, 1);
    for (int i = 0; i < count && !checkasm_failed_current(); ++i) {
        const int w = sizes[i].w, h = sizes[i].h, stride = fusion_pitch(w);
        CheckasmBuf r[3], o[3];
        uint8_t *rp[3], *op[3];
        for (int f = 0; f < 3; ++f) {
            r[f].alloc(32, (size_t)h * stride, 32);
            rp[f] = r[f].data();
        }
        fill_weights(rp, stride, w, h, i % 6);
        for (int f = 0; f < 3; ++f) {
            o[f].copy_from(r[f]);
            op[f] = o[f].data();
        }
        ref.fusion.weight_normalize(rp[0], rp[1], rp[2], stride, w, h);
        opt.fusion.weight_normalize(op[0], op[1], op[2], stride, w, h);
        for (int f = 0; f < 3; ++f)
            if (checkasm_compare_blocks("weights", r[f], o[f], stride, 1)) o[f].canaries_intact("weights");
        if (i == 2)
            CHECKASM_BENCH2("weight_normalize 1040x780",
                            ref.fusion.weight_normalize(rp[0], rp[1], rp[2], stride, w, h),
                            opt.fusion.weight_normalize(op[0], op[1], op[2], stride, w, h));
    }
}
