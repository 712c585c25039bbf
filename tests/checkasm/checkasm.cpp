#include "checkasm/checkasm.h"

#include <inttypes.h>
#include <stdlib.h>
#include <time.h>

#include "common/arith.h"
#include "common/cpu.h"

namespace {

struct Test {
    const char *name;
    checkasm_fn fn;
};
Test g_tests[64];
int g_test_count;

HdrDsp g_ref, g_opt;
const char *g_isa = "none";
bool g_have_opt, g_bench;
const char *g_filter;
uint32_t g_seed;
uint64_t g_rng;

char g_func[160];
bool g_func_failed;
int g_funcs_checked, g_funcs_failed, g_fail_prints;

uint64_t now_ns() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (uint64_t)ts.tv_sec * 1000000000ull + (uint64_t)ts.tv_nsec;
}

void finish_func() {
    if (!g_func[0]) return;
    ++g_funcs_checked;
    g_funcs_failed += g_func_failed;
    printf("  %-40s %s\n", g_func, g_func_failed ? "FAILED" : "ok");
    g_func[0] = 0;
    g_func_failed = false;
}

} // namespace

CheckasmRegistrar::CheckasmRegistrar(const char *name, checkasm_fn fn) {
    if (g_test_count < 64) g_tests[g_test_count++] = Test{name, fn};
}

const HdrDsp &checkasm_ref() { return g_ref; }
const HdrDsp &checkasm_opt() { return g_opt; }
bool checkasm_benching() { return g_bench; }
bool checkasm_failed_current() { return g_func_failed; }

uint32_t checkasm_rand() {
    // xorshift64*: the whole run replays from the seed.
    g_rng ^= g_rng >> 12;
    g_rng ^= g_rng << 25;
    g_rng ^= g_rng >> 27;
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

// ------------------------------------------------------------------ content
static int pattern_value(int pat, int x, int y, int lo, int hi, int band) {
    switch (pat) {
    case PAT_ZERO: return lo <= 0 && hi >= 0 ? 0 : lo;
    case PAT_MAX: return hi;
    case PAT_CHECKER: return ((x ^ y) & 1) ? hi : lo;
    case PAT_BANDS: return ((x / band) & 1) ? hi : lo;
    case PAT_SMOOTH: {
        const int v = lo + (int)(((int64_t)(x * 7 + y * 3) * (hi - lo) / 512) % (hi - lo + 1));
        return clamp_int(v + checkasm_rand_range(-2, 2), lo, hi);
    }
    default: return lo + (int)(checkasm_rand() % (uint32_t)(hi - lo + 1));
    }
}

void checkasm_fill_u8(uint8_t *p, ptrdiff_t stride, int w, int h, int pat) {
    const int band = checkasm_rand_range(1, 5);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) p[y * stride + x] = (uint8_t)pattern_value(pat % PAT_COUNT, x, y, 0, 255, band);
}

void checkasm_fill_s16(int16_t *p, ptrdiff_t stride, int w, int h, int lo, int hi, int pat) {
    const int band = checkasm_rand_range(1, 5);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) p[y * stride + x] = (int16_t)pattern_value(pat % PAT_COUNT, x, y, lo, hi, band);
}

CheckasmSizes::CheckasmSizes(int top_w, int top_h, int min_w, int min_h) {
    auto add = [this](int w, int h) {
        const int p = (w + 10) & ~7;
        size[n] = {n, w, h, checkasm_rand() % 4 ? p : p + 8 * checkasm_rand_range(1, 3)};
        ++n;
    };
    for (int l = 0; l < 12; ++l)
        if ((top_w >> l) >= min_w && (top_h >> l) >= min_h) add(top_w >> l, top_h >> l);
    for (int w = min_w; w < min_w + 48; ++w) add(w, checkasm_rand_range(min_h, min_h + 9));
    while (n < 72) add(checkasm_rand_range(min_w, 700), checkasm_rand_range(min_h, 60));
}

// ------------------------------------------------------------------ buffers
void CheckasmBuf::alloc(size_t b, size_t s, size_t a) {
    free(base);
    before = b, size = s, after = a;
    base = (uint8_t *)aligned_alloc(64, (b + s + a + 63) & ~(size_t)63);
    for (size_t i = 0; i < b; ++i) base[i] = (uint8_t)(0xA5 ^ (i * 29));
    for (size_t i = 0; i < a; ++i) base[b + s + i] = (uint8_t)(0x5A ^ (i * 31));
    for (size_t i = 0; i < s; ++i) base[b + i] = (uint8_t)checkasm_rand();
}

CheckasmBuf::~CheckasmBuf() { free(base); }

void CheckasmBuf::copy_from(const CheckasmBuf &o) {
    if (size != o.size || before != o.before || after != o.after) alloc(o.before, o.size, o.after);
    memcpy(base, o.base, before + size + after);
}

bool CheckasmBuf::canaries_intact(const char *name) const {
    for (size_t i = 0; i < before; ++i)
        if (base[i] != (uint8_t)(0xA5 ^ (i * 29))) {
            if (name) checkasm_fail("%s: wrote %zu bytes before the buffer", name, before - i);
            return false;
        }
    for (size_t i = after; i-- > 0;)
        if (base[before + size + i] != (uint8_t)(0x5A ^ (i * 31))) {
            if (name) checkasm_fail("%s: wrote %zu bytes past the buffer", name, i + 1);
            return false;
        }
    return true;
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

bool checkasm_compare_blocks(const char *name, const CheckasmBuf &ref, const CheckasmBuf &opt, size_t stride,
                             int elem) {
    if (memcmp(ref.base, opt.base, ref.before + ref.size + ref.after) == 0) return true;
    size_t first = 0;
    while (ref.base[first] == opt.base[first]) ++first;
    if (first < ref.before)
        checkasm_fail("%s: differs %zu bytes before the buffer", name, ref.before - first);
    else if (first >= ref.before + ref.size)
        checkasm_fail("%s: differs %zu bytes past the buffer", name, first - ref.before - ref.size);
    else
        checkasm_fail("%s: output differs", name);
    if (first >= ref.before && first < ref.before + ref.size && g_fail_prints <= 4)
        print_map(ref.as<uint8_t>(), opt.as<uint8_t>(), ref.size, stride, elem, first - ref.before);
    return false;
}

bool CheckasmBufs::compare(const char *name) {
    for (int i = 0; i < n; ++i) {
        char what[160];
        snprintf(what, sizeof what, "%s, buffer %d", name, i);
        if (!ref[i].canaries_intact(what) || !opt[i].canaries_intact(what) ||
            !checkasm_compare_blocks(what, ref[i], opt[i], stride[i], elem[i]))
            return false;
    }
    return true;
}

void checkasm_bench(const char *name, void (*call)(void *, bool), void *ctx) {
    const int reps = 16;
    uint64_t t[3];
    for (int v = 0; v < 2; ++v) {
        t[v] = now_ns();
        for (int r = 0; r < reps; ++r) call(ctx, v == 1);
    }
    t[2] = now_ns();
    const double ref_ns = (double)(t[1] - t[0]) / reps, opt_ns = (double)(t[2] - t[1]) / reps;
    printf("    bench %-36s ref %10.0f ns  %s %10.0f ns  x%.2f\n", name, ref_ns, g_isa, opt_ns,
           opt_ns > 0 ? ref_ns / opt_ns : 0.0);
}

// --------------------------------------------------------------------- main
int main(int argc, char **argv) {
    g_seed = (uint32_t)now_ns() ^ (uint32_t)(now_ns() >> 32);
    for (int i = 1; i < argc; ++i) {
        if (!strncmp(argv[i], "--seed=", 7)) g_seed = (uint32_t)strtoul(argv[i] + 7, nullptr, 0);
        else if (!strncmp(argv[i], "--test=", 7)) g_filter = argv[i] + 7;
        else if (!strcmp(argv[i], "--bench")) g_bench = true;
        else {
            fprintf(stderr, "usage: %s [--seed=N] [--test=substring] [--bench]\n", argv[0]);
            return 2;
        }
    }
    hdr_dsp_init(&g_ref, 0);
    g_opt = g_ref;
#if defined(CHECKASM_SIMDE_NEON)
    hdr_dsp_init_neon(&g_opt); // NEON kernels compiled through SIMDe
    g_isa = "neon_simde";
    g_have_opt = true;
#else
    if (hdr_cpu_flags() & HDR_CPU_NEON) {
        hdr_dsp_init(&g_opt, HDR_CPU_NEON);
        g_isa = "neon";
        g_have_opt = true;
    }
#endif
    printf("checkasm: seed %" PRIu32 ", instruction set %s%s\n", g_seed, g_isa,
           g_have_opt ? "" : " (none in this build: nothing to compare)");
    for (int t = 0; t < g_test_count; ++t) {
        g_rng = 0x9E3779B97F4A7C15ull ^ ((uint64_t)g_seed << 16) ^ (uint64_t)(t + 1);
        printf("%s:\n", g_tests[t].name);
        g_tests[t].fn();
        finish_func();
    }
    printf("checkasm: %d kernels checked, %d failed (seed %" PRIu32 ")\n", g_funcs_checked, g_funcs_failed, g_seed);
    if (g_funcs_failed) printf("replay with --seed=%" PRIu32 "\n", g_seed);
    return g_funcs_failed ? 1 : 0;
}
