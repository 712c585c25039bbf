// Chroma pyramid, chroma reconstruction and output normalisation at the
// 4160x3120 geometry (11 luma levels, chroma level argument 5), with the
// reference kernels and with the table the running CPU selects.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "common/dsp.h"
#include "common/geometry.h"
#include "varo_hdr.h"

namespace {

const int kW = 4160, kH = 3120, kLevels = 11;

struct Setup {
    HdrContext *ctx = nullptr;
    std::vector<uint8_t> chroma[3];
    std::vector<uint8_t> out_luma, out_chroma;

    Setup() {
        if (hdrCreateContext(&ctx) != 0) abort();
        ctx->width = kW;
        ctx->height = kH;
        ctx->levels = kLevels;
        set_level_pitches(ctx);
        uint32_t s = 1;
        auto next = [&s]() { return s ^= s << 13, s ^= s >> 17, s ^= s << 5; };
        for (int f = 0; f < 3; ++f) {
            chroma[f].resize((size_t)kW * (kH / 2 + 2) + 64);
            for (auto &b : chroma[f]) b = (uint8_t)(next() >> 8);
            ctx->aligned[f].chroma = chroma[f].data();
            for (int l = 1; l <= 5; ++l)
                for (int i = 0; i < ((kH >> l) + 1) * ctx->row_stride[l]; ++i)
                    ctx->w_gaussian_pyramid[f][l][i] = (uint8_t)(f == 0 ? 86 : 85);
        }
        int16_t *y = ctx->img_laplacian_pyramid[0][0].IY;
        for (int i = 0; i < kH * ctx->row_stride[0]; ++i) y[i] = (int16_t)((int)(next() % 420) - 60);
        out_luma.resize((size_t)kW * kH);
        out_chroma.resize((size_t)kW * kH / 2);
    }
};

Setup &setup() {
    static Setup s;
    return s;
}

void use_table(benchmark::State &state) {
    setup();
    hdr_set_cpu_flags_mask(state.range(0) ? ~0u : 0);
    state.SetLabel(state.range(0) ? "active" : "reference");
}

void BM_ImageLaplacianPyramidChroma(benchmark::State &state) {
    Setup &s = setup();
    use_table(state);
    for (auto _ : state) ImageLaplacianPyramidChroma(s.ctx, kW, kLevels >> 1, AE_IDX);
    hdr_set_cpu_flags_mask(~0u);
}

void BM_ImageReconstructChroma(benchmark::State &state) {
    Setup &s = setup();
    use_table(state);
    for (int f = 0; f < 3; ++f) ImageLaplacianPyramidChroma(s.ctx, kW, kLevels >> 1, f);
    // Repeats blend the already fused levels again: the same work each time.
    for (auto _ : state) ImageReconstructChroma(s.ctx, kLevels >> 1);
    hdr_set_cpu_flags_mask(~0u);
}

void BM_ImageNormalize(benchmark::State &state) {
    Setup &s = setup();
    use_table(state);
    for (auto _ : state) ImageNormalize(s.ctx, s.out_luma.data(), s.out_chroma.data(), kW);
    hdr_set_cpu_flags_mask(~0u);
}

} // namespace

BENCHMARK(BM_ImageLaplacianPyramidChroma)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImageReconstructChroma)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImageNormalize)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
