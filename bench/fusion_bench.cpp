// Luma fusion stages at the 4160 x 3120 capacity (11 levels): the reference
// kernels (arg 0) against the active table (arg 1).  On x86 the active table
// is the reference too: the NEON kernels exist there only through SIMDe in
// the test binaries.
#include <benchmark/benchmark.h>
#include <string.h>

#include "common/dsp.h"
#include "common/geometry.h"
#include "varo_hdr.h"

namespace {

HdrContext *bench_context() {
    static HdrContext *ctx = [] {
        HdrContext *c = nullptr;
        if (hdrCreateContext(&c) != 0) return (HdrContext *)nullptr;
        c->width = VARO_HDR_MAX_WIDTH;
        c->height = VARO_HDR_MAX_HEIGHT;
        c->levels = VARO_HDR_MAX_LEVELS;
        set_level_pitches(c);
        uint32_t s = 1;
        for (int f = 0; f < 3; ++f) {
            for (size_t i = 0; i < (size_t)c->row_stride[0] * c->height; ++i) {
                s = s * 1664525u + 1013904223u;
                c->img_gaussian_pyramid[f][0][i] = (uint8_t)(s >> 24);
            }
            memset(c->motion_mask[f], 1, (size_t)c->width * c->height);
        }
        return c;
    }();
    return ctx;
}

// Selects the table for one run and gives the active one back after it.
struct TableChoice {
    explicit TableChoice(int64_t reference) {
        if (reference == 0) hdr_set_cpu_flags_mask(0);
    }
    ~TableChoice() { hdr_set_cpu_flags_mask(~0u); }
};

template <class Fn> void run(benchmark::State &state, Fn fn) {
    HdrContext *ctx = bench_context();
    if (!ctx) {
        state.SkipWithError("context allocation failed");
        return;
    }
    TableChoice table(state.range(0));
    state.SetLabel(state.range(0) == 0 ? "reference" : "active");
    for (auto _ : state) fn(ctx);
}

void BM_WeightWellExposed(benchmark::State &state) {
    run(state, [](HdrContext *ctx) { WeightWellExposed(ctx, AE_IDX); });
}
void BM_WeightNormalize(benchmark::State &state) {
    run(state, [](HdrContext *ctx) {
        WeightNormalize(ctx->w_gaussian_pyramid, ctx->width, ctx->height, ctx->row_stride[0]);
    });
}
void BM_WeightGaussPyramid(benchmark::State &state) {
    run(state, [](HdrContext *ctx) {
        WeightGaussPyramid(ctx->w_gaussian_pyramid[AE_IDX], ctx->inter_buf[AE_IDX], ctx->width,
                           ctx->height, ctx->row_stride, ctx->levels);
    });
}
// Builds over whatever level 0 holds after the previous run: the work does
// not depend on the values.
void BM_ImageLaplacianPyramid(benchmark::State &state) {
    run(state, [](HdrContext *ctx) { ImageLaplacianPyramid(ctx, ctx->levels, AE_IDX); });
}
void BM_ImageReconstruct(benchmark::State &state) {
    run(state, [](HdrContext *ctx) { ImageReconstruct(ctx, ctx->levels); });
}

} // namespace

BENCHMARK(BM_WeightWellExposed)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WeightNormalize)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WeightGaussPyramid)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImageLaplacianPyramid)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImageReconstruct)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
