#include "checkasm/checkasm.h"

#include <inttypes.h>
#include <stdlib.h>
#include <time.h>

#include <utility>

#include "common/arith.h"
#include "common/cpu.h"

namespace {

std::pair<const char *, checkasm_fn> g_tests[64];
int g_test_count;
HdrDsp g_ref, g_opt;
const char *g_isa = "none", *g_filter;
bool g_have_opt, g_bench, g_func_failed;
uint32_t g_seed;
uint64_t g_rng;
char g_func[160];
int g_funcs_checked, g_funcs_failed, g_fail_prints;

uint64_t now_ns() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (uint64_t)ts.tv_sec * 1000000000ull + (uint64_t)ts.tv_nsec;
}

void finish_func() {
    if (g_func[0]) printf("  %-40s %s\n", g_func, g_func_failed ? "FAILED" : "ok");
    g_funcs_checked += g_func[0] != 0;
    g_funcs_failed += g_func_failed;
    g_func[0] = 0;
    g_func_failed = false;
}

} // namespace

CheckasmRegistrar::CheckasmRegistrar(const char *name, checkasm_fn fn) { g_tests[g_test_count++] = {name, fn}; }
const HdrDsp &checkasm_ref() { return g_ref; }
const HdrDsp &checkasm_opt() { return g_opt; }
bool checkasm_benching() { return g_bench; }
bool checkasm_failed_current() { return g_func_failed; }

uint32_t checkasm_rand() { // xorshift64*
    g_rng ^= g_rng >> 12, g_rng ^= g_rng << 25, g_rng ^= g_rng >> 27;
    return (uint32_t)((g_rng * 2685821657736338717ull) >> 32);
}

bool checkasm_check_func(bool has_variant, const char *fmt, ...) {
    char name[128];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(name, sizeof name, fmt, ap);
    va_end(ap);
    if (!has_variant || !g_have_opt || (g_filter && !strstr(name, g_filter))) return false;
    finish_func();
    snprintf(g_func, sizeof g_func, "%s_%s", name, g_isa);
    g_fail_prints = 0;
    return true;
}

void checkasm_fail(const char *fmt, ...) {
    g_func_failed = true;
    if (g_fail_prints++ >= 4) return; // the first few are enough to debug
    va_list ap;
    va_start(ap, fmt);
    printf("    FAIL %s (seed %" PRIu32 "): ", g_func, g_seed);
    vprintf(fmt, ap);
    printf("\n");
    va_end(ap);
}

template <class T> static void fill(T *p, ptrdiff_t stride, int w, int h, int lo, int hi, int pattern) {
    const int band = checkasm_rand_range(1, 5), range = hi - lo;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int v;
            switch (pattern % PAT_COUNT) {
            case PAT_ZERO: v = lo <= 0 && hi >= 0 ? 0 : lo; break;
            case PAT_MAX: v = hi; break;
            case PAT_CHECKER: v = ((x ^ y) & 1) ? hi : lo; break;
            case PAT_BANDS: v = ((x / band) & 1) ? hi : lo; break; // stripes of min/max, widths 1..5
            case PAT_SMOOTH: // gentle ramps with noise
                v = clamp_int(lo + (int)((int64_t)(x * 7 + y * 3) * range / 512 % (range + 1)) +
                    checkasm_rand_range(-2, 2), lo, hi);
                break;
            default: v = lo + (int)(checkasm_rand() % (uint32_t)(range + 1));
            }
            p[y * stride + x] = (T)v;
        }
}

CheckasmSizes::CheckasmSizes(int top_w, int top_h, int min_w, int min_h) {
    auto add = [this](int w, int h) {
        const int p = level_row_stride(w, 0);
        size[n] = {n, w, h, checkasm_rand() % 4 ? p : p + 8 * checkasm_rand_range(1, 3)};
        ++n;
    };
    for (int l = 0; l < 12; ++l)
        if ((top_w >> l) >= min_w && (top_h >> l) >= min_h) add(top_w >> l, top_h >> l);
    for (int w = min_w; w < min_w + 48; ++w) add(w, checkasm_rand_range(min_h, min_h + 9));
    while (n < 72) add(checkasm_rand_range(min_w, 700), checkasm_rand_range(min_h, 60));
}

static uint8_t canary(size_t i) { return (uint8_t)(0xA5 ^ (i * 29)); }

int CheckasmBufs::add(size_t bytes, size_t stride_bytes, int elem_bytes) {
    ref[n].resize(kBefore + bytes + kAfter);
    for (size_t i = 0; i < ref[n].size(); ++i)
        ref[n][i] = i >= kBefore && i < kBefore + bytes ? (uint8_t)checkasm_rand() : canary(i);
    stride[n] = stride_bytes ? stride_bytes : 64;
    elem[n] = elem_bytes;
    return n++;
}

int CheckasmBufs::u8(size_t count, size_t pitch, int w, int h, int pattern, size_t lead) {
    const int i = add(count, pitch, 1);
    fill(r<uint8_t>(i, lead), pitch, w, h, 0, 255, pattern);
    return i;
}

int CheckasmBufs::s16(size_t count, size_t pitch, int w, int h, int lo, int hi, int pattern, size_t lead) {
    const int i = add(count * 2, pitch * 2, 2);
    fill(r<int16_t>(i, lead), pitch, w, h, lo, hi, pattern);
    return i;
}

// Rows around the first difference: '.' equal, 'x' differs.
static void print_map(const uint8_t *a, const uint8_t *b, size_t bytes, size_t stride, int elem, size_t first) {
    const size_t row0 = first / stride, col0 = (first % stride) / elem, cols = stride / elem;
    const size_t c_from = col0 > 16 ? col0 - 16 : 0, c_to = c_from + 48 < cols ? c_from + 48 : cols;
    printf("      first difference at row %zu, element %zu (ref ", row0, col0);
    for (int k = 0; k < elem; ++k) printf("%02x", a[first / elem * elem + k]);
    printf(", opt ");
    for (int k = 0; k < elem; ++k) printf("%02x", b[first / elem * elem + k]);
    printf("); columns %zu..%zu:\n", c_from, c_to - 1);
    for (size_t r = row0 > 2 ? row0 - 2 : 0, r_end = r + 6; r < r_end && r * stride < bytes; ++r) {
        printf("      %5zu ", r);
        for (size_t c = c_from, o = r * stride + c * elem; c < c_to && o + elem <= bytes; ++c, o += elem)
            putchar(memcmp(a + o, b + o, elem) ? 'x' : '.');
        printf("\n");
    }
}

bool CheckasmBufs::compare(const char *name) {
    for (int i = 0; i < n; ++i) {
        const std::vector<uint8_t> &a = ref[i], &b = opt[i];
        const size_t size = a.size() - kBefore - kAfter;
        for (const std::vector<uint8_t> *v : {&a, &b})
            for (size_t k = 0; k < a.size(); k = k + 1 == kBefore ? kBefore + size : k + 1) // the canaries
                if ((*v)[k] != canary(k))
                    return checkasm_fail("%s, buffer %d: wrote %s", name, i, k < kBefore ? "before it" : "past it"), false;
        if (a == b) continue;
        size_t first = kBefore;
        while (a[first] == b[first]) ++first;
        checkasm_fail("%s, buffer %d: output differs", name, i);
        if (g_fail_prints <= 4) print_map(a.data() + kBefore, b.data() + kBefore, size, stride[i], elem[i], first - kBefore);
        return false;
    }
    return true;
}

void checkasm_bench(const char *name, void (*call)(void *, bool), void *ctx) {
    const int reps = 16;
    uint64_t t[3];
    for (int v = 0; v < 3; ++v) {
        t[v] = now_ns();
        for (int r = 0; r < reps && v < 2; ++r) call(ctx, v == 1);
    }
    const double ref_ns = (double)(t[1] - t[0]) / reps, opt_ns = (double)(t[2] - t[1]) / reps;
    printf("    bench %-36s ref %10.0f ns  %s %10.0f ns  x%.2f\n", name, ref_ns, g_isa, opt_ns, ref_ns / (opt_ns + 1e-9));
}

int main(int argc, char **argv) {
    g_seed = (uint32_t)now_ns() ^ (uint32_t)(now_ns() >> 32);
    for (int i = 1; i < argc; ++i) {
        if (!strncmp(argv[i], "--seed=", 7)) g_seed = (uint32_t)strtoul(argv[i] + 7, nullptr, 0);
        else if (!strncmp(argv[i], "--test=", 7)) g_filter = argv[i] + 7;
        else if (!strcmp(argv[i], "--bench")) g_bench = true;
        else return fprintf(stderr, "usage: %s [--seed=N] [--test=substring] [--bench]\n", argv[0]), 2;
    }
    hdr_dsp_init(&g_ref, 0);
    // One round per instruction-set level of this CPU (VARO_HDR_CPU caps it);
    // the x86 levels are cumulative, each round's table holds that level's
    // kernels over the ones below it, and every kernel that differs from the
    // reference is compared.
    static const struct {
        const char *name;
        unsigned mask;
    } levels[] = {
#if defined(VARO_HDR_TEST_SIMDE_NEON)
        {"neon_simde", HDR_CPU_NEON}, // the NEON kernels compiled through SIMDe
#else
        {"neon", HDR_CPU_NEON},
#endif
        {"sse41", HDR_CPU_SSE41},
        {"avx2", HDR_CPU_SSE41 | HDR_CPU_AVX2},
    };
    const unsigned cpu = hdr_cpu_flags();
    int rounds = 0;
    printf("checkasm: seed %" PRIu32 "\n", g_seed);
    for (const auto &level : levels) {
        if ((cpu & level.mask) != level.mask) continue;
        ++rounds;
        g_isa = level.name;
        g_have_opt = true;
        hdr_dsp_init(&g_opt, level.mask);
        printf("checkasm: instruction set %s\n", g_isa);
        for (int t = 0; t < g_test_count; ++t) {
            g_rng = 0x9E3779B97F4A7C15ull ^ ((uint64_t)g_seed << 16) ^ (uint64_t)(t + 1);
            printf("%s:\n", g_tests[t].first);
            g_tests[t].second();
            finish_func();
        }
    }
    if (!rounds) printf("checkasm: no instruction set in this build or CPU: nothing to compare\n");
    printf("checkasm: %d kernels checked, %d failed (seed %" PRIu32 ")\n", g_funcs_checked, g_funcs_failed, g_seed);
    if (g_funcs_failed) printf("replay with --seed=%" PRIu32 "\n", g_seed);
    return g_funcs_failed ? 1 : 0;
}
