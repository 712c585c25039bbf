// Whole merges on synthetic brackets: wall time per merge and the library's
// own stage counters (ms) as benchmark counters.
#include <benchmark/benchmark.h>

#include "synthetic_bracket.h"
#include "varo_hdr.h"

static void BM_Merge(benchmark::State &state) {
    const int w = (int)state.range(0), h = (int)state.range(1);
    HdrContext *ctx = nullptr;
    if (hdrCreateContext(&ctx) != 0) {
        state.SkipWithError("context allocation failed");
        return;
    }
    BracketOptions o;
    o.he_dx = 3, o.he_dy = -2, o.le_dx = -1, o.le_dy = 2;
    const TestBracket src = make_bracket(w, h, o);
    double t1 = 0, t4 = 0, t5 = 0, t6 = 0;
    for (auto _ : state) {
        state.PauseTiming();
        TestBracket b = src;
        HdrInput in = b.input();
        state.ResumeTiming();
        benchmark::DoNotOptimize(hdrThreeFrameCore(ctx, &in));
        t1 += (double)total_time_1, t4 += (double)total_time_4;
        t5 += (double)total_time_5, t6 += (double)total_time_6;
    }
    state.counters["registration_ms"] = benchmark::Counter(t1, benchmark::Counter::kAvgIterations);
    state.counters["motion_ms"] = benchmark::Counter(t4, benchmark::Counter::kAvgIterations);
    state.counters["fusion_ms"] = benchmark::Counter(t5, benchmark::Counter::kAvgIterations);
    state.counters["weights_ms"] = benchmark::Counter(t6, benchmark::Counter::kAvgIterations);
    hdrDestroyContext(ctx);
}
BENCHMARK(BM_Merge)->Args({4160, 3120})->Args({4000, 3000})->Args({1920, 1080})
    ->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
