#include <benchmark/benchmark.h>

#include "varo_hdr.h"

// Creation takes the whole ~430 MB pool; destruction gives it back.
static void BM_CreateDestroyContext(benchmark::State &state) {
    for (auto _ : state) {
        HdrContext *ctx = nullptr;
        if (hdrCreateContext(&ctx) != 0) state.SkipWithError("allocation failed");
        hdrDestroyContext(ctx);
    }
}
BENCHMARK(BM_CreateDestroyContext)->Unit(benchmark::kMicrosecond);
