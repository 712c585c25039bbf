// Registration and motion stages at the full 4160 x 3120 geometry, with the
// reference kernels and with the active table.
#include <benchmark/benchmark.h>
#include <string.h>

#include <vector>

#include "common/dsp.h"
#include "common/geometry.h"
#include "varo_hdr.h"

namespace {

const int kW = VARO_HDR_MAX_WIDTH, kH = VARO_HDR_MAX_HEIGHT;

struct Fixture {
    HdrContext *ctx = nullptr;
    std::vector<uint8_t> luma[3];
    Fixture() {
        if (hdrCreateContext(&ctx) != 0) ctx = nullptr;
        // Blocky texture with a different shift per frame.
        for (int f = 0; f < 3; ++f) {
            luma[f].resize((size_t)kW * kH);
            for (int y = 0; y < kH; ++y)
                for (int x = 0; x < kW; ++x) {
                    const uint32_t cell = (uint32_t)((x + 3 * f) / 24) * 2654435761u ^
                                          (uint32_t)((y + 2 * f) / 24) * 40503u;
                    luma[f][(size_t)y * kW + x] = (uint8_t)((cell >> 13) + f * 40 + (x & 7));
                }
        }
    }
};

Fixture &fixture() {
    static Fixture f;
    return f;
}

// Arg 0: reference kernels; arg 1: the active table.
struct TableChoice {
    explicit TableChoice(const benchmark::State &state) {
        if (state.range(0) == 0) hdr_set_cpu_flags_mask(0);
    }
    ~TableChoice() { hdr_set_cpu_flags_mask(~0u); }
};

void BM_BitmapCalc(benchmark::State &state) {
    Fixture &fx = fixture();
    if (!fx.ctx) return state.SkipWithError("context allocation failed");
    TableChoice use(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(BitmapCalc(fx.luma[AE_IDX].data(), kW, kH, fx.ctx->bitmap_pyramid[AE_IDX]));
}

void BM_OffsetCalc(benchmark::State &state) {
    Fixture &fx = fixture();
    if (!fx.ctx) return state.SkipWithError("context allocation failed");
    TableChoice use(state);
    BitmapCalc(fx.luma[LE_IDX].data(), kW, kH, fx.ctx->bitmap_pyramid[LE_IDX]);
    BitmapCalc(fx.luma[AE_IDX].data(), kW, kH, fx.ctx->bitmap_pyramid[AE_IDX]);
    HdrOffset off;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            OffsetCalc(fx.ctx->bitmap_pyramid[LE_IDX], fx.ctx->bitmap_pyramid[AE_IDX], &off));
}

void BM_MotionMask(benchmark::State &state) {
    Fixture &fx = fixture();
    if (!fx.ctx) return state.SkipWithError("context allocation failed");
    TableChoice use(state);
    HdrContext *ctx = fx.ctx;
    HdrInput in;
    memset(&in, 0, sizeof in);
    in.width = kW;
    in.height = kH;
    const uint32_t units[3] = {16000, 1000, 4000}; // ratios 4 and 0.25
    for (int f = 0; f < 3; ++f) {
        in.exposure[f].exposure_scale = 1.0f;
        in.exposure[f].exposure_units = units[f];
        ctx->aligned[f].luma = fx.luma[f].data();
        memset(ctx->motion_mask[f], 1, (size_t)kW * kH);
    }
    ctx->width = kW;
    ctx->height = kH;
    ctx->row_stride[0] = level_row_stride(kW, 0);
    ctx->le_flag = ctx->he_flag = 1;
    for (auto _ : state) benchmark::DoNotOptimize(MotionMask(ctx, &in));
}

} // namespace

BENCHMARK(BM_BitmapCalc)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OffsetCalc)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MotionMask)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
