// Kernel-equivalence harness: every instruction-set kernel runs beside its
// reference on identical copies of random and structured inputs; every buffer
// it is given must come out byte-identical, and the canaries around each
// buffer must survive.  Per kernel:
//
//   if (checkasm_check_func(opt.fusion.foo != ref.fusion.foo, "foo"))
//       for (const CheckasmSize c : CheckasmSizes(4160, 3120, 1, 1)) { // stops at the first failure
//           CheckasmBufs b;
//           const int src = b.u8(c.h * c.pitch, c.pitch, c.w, c.h, c.i), dst = b.s16(...);
//           b.run([&](const HdrDsp &d, bool o) { d.fusion.foo(b.p<int16_t>(dst, o), b.p<uint8_t>(src, o), ...); },
//                 c.i == 2, "foo %dx%d", c.w, c.h);                    // compares; timed with --bench
//       }
//
// Usage: checkasm [--seed=N] [--test=substring] [--bench]
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#include "common/dsp.h"
#include "common/geometry.h"

typedef void (*checkasm_fn)();
struct CheckasmRegistrar {
    CheckasmRegistrar(const char *name, checkasm_fn fn);
};
#define CHECKASM_TEST(name)                                                   \
    static void checkasm_test_##name();                                       \
    static CheckasmRegistrar checkasm_reg_##name(#name, checkasm_test_##name); \
    static void checkasm_test_##name()

const HdrDsp &checkasm_ref(); // reference kernels only
const HdrDsp &checkasm_opt(); // the instruction set under test over them
// True when the kernel has an optimised variant in this build and matches --test.
bool checkasm_check_func(bool has_variant, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
void checkasm_fail(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
bool checkasm_failed_current();

uint32_t checkasm_rand(); // replayable from the seed
static inline int checkasm_rand_range(int lo, int hi) { return lo + (int)(checkasm_rand() % (uint32_t)(hi - lo + 1)); }

// Content where rounding and saturation break, chosen by pattern % PAT_COUNT
// (CheckasmBufs::u8 and s16).
enum CheckasmPattern { PAT_RANDOM, PAT_ZERO, PAT_MAX, PAT_CHECKER, PAT_BANDS, PAT_SMOOTH, PAT_COUNT };

// Every level of top_w x top_h down to the minimum, every width from min_w
// to min_w + 47 (all residues mod 16 and 32) with a few rows, and random
// sizes; iteration stops at the first failure.  pitch: the context's pitch
// of a luma level of width w, now and then a wider one.
struct CheckasmSize {
    int i, w, h, pitch;
};
class CheckasmSizes {
  public:
    CheckasmSizes(int top_w, int top_h, int min_w, int min_h);
    struct It {
        const CheckasmSize *p;
        CheckasmSize operator*() const { return *p; }
        void operator++() { ++p; }
        bool operator!=(const It &e) const { return p != e.p && !checkasm_failed_current(); }
    };
    It begin() const { return {size}; }
    It end() const { return {size + n}; }

  private:
    CheckasmSize size[80];
    int n = 0;
};

// The buffers of one kernel call, one copy each for the reference and the
// optimised run, with canaries before and after.  Inputs are compared too: a
// kernel must not write them.  Counts, pitches and offsets are in elements.
struct CheckasmBufs {
    static const size_t kBefore = 32, kAfter = 64;
    std::vector<uint8_t> ref[8], opt[8];
    size_t stride[8];
    int elem[8], n = 0;
    // `count` random values; w x h of them from `lead` on filled with the pattern.
    int u8(size_t count, size_t pitch, int w = 0, int h = 0, int pattern = 0, size_t lead = 0);
    int s16(size_t count, size_t pitch, int w = 0, int h = 0, int lo = 0, int hi = 0, int pattern = 0, size_t lead = 0);
    int add(size_t bytes, size_t stride_bytes, int elem_bytes);
    template <class T> T *p(int i, bool o, size_t off = 0) { return (T *)((o ? opt : ref)[i].data() + kBefore) + off; }
    template <class T> T *r(int i, size_t off = 0) { return p<T>(i, false, off); }
    bool compare(const char *name);
    // call(table, is_opt) on both copies, then everything compared.
    template <class F> bool run(F call, bool bench, const char *fmt, ...) __attribute__((format(printf, 4, 5)));
};
// Vertical kernels emit row ranges: the reference makes the whole plane in
// one call, the variant under test in a random split of ranges of 1 .. 8
// rows (now and then longer), each with the scratch rows from its first
// needed row on.
template <class F> inline void row_ranges(bool split, int n, F call) {
    for (int y0 = 0, y1; y0 < n; y0 = y1) {
        const int len = !split ? n : checkasm_rand() % 4 ? checkasm_rand_range(1, 8) : checkasm_rand_range(1, n);
        y1 = y0 + len < n ? y0 + len : n;
        call(y0, y1);
    }
}

bool checkasm_benching();
void checkasm_bench(const char *name, void (*call)(void *, bool), void *ctx);

template <class F> bool CheckasmBufs::run(F call, bool bench, const char *fmt, ...) {
    char name[128];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(name, sizeof name, fmt, ap);
    va_end(ap);
    for (int i = 0; i < n; ++i) opt[i] = ref[i];
    call(checkasm_ref(), false);
    call(checkasm_opt(), true);
    const bool same = compare(name);
    if (bench && checkasm_benching())
        checkasm_bench(name, [](void *c, bool o) { (*(F *)c)(o ? checkasm_opt() : checkasm_ref(), o); }, &call);
    return same;
}
