// Kernel-equivalence harness: every instruction-set kernel is run beside its
// reference on identical copies of random, structured inputs; outputs and the
// bytes around them must match exactly, and canaries outside a kernel's
// allowed extent must survive.
//
// A test file registers checks with CHECKASM_TEST(name) { ... }.  Inside, for
// each kernel:
//
//   const HdrDsp &ref = checkasm_ref();
//   const HdrDsp &opt = checkasm_opt();
//   if (checkasm_check_func(opt.fusion.foo != ref.fusion.foo, "foo")) {
//       ... prepare identical inputs, call ref.fusion.foo and opt.fusion.foo ...
//       checkasm_compare_u8("foo", ...);  // reports and records failures
//       CHECKASM_BENCH(opt.fusion.foo(...)); // timed only with --bench
//   }
//
// Usage: checkasm [--seed=N] [--test=substring] [--bench] [--list]
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "common/dsp.h"

// ---------------------------------------------------------------- registry
typedef void (*checkasm_fn)();
struct CheckasmRegistrar {
    CheckasmRegistrar(const char *name, checkasm_fn fn);
};
#define CHECKASM_TEST(name)                                                   \
    static void checkasm_test_##name();                                       \
    static CheckasmRegistrar checkasm_reg_##name(#name, checkasm_test_##name); \
    static void checkasm_test_##name()

// ------------------------------------------------------------------- state
const HdrDsp &checkasm_ref(); // reference kernels only
const HdrDsp &checkasm_opt(); // the instruction set under test over them
const char *checkasm_isa_name();
bool checkasm_benching();

// True when the kernel has an optimised variant in this build (and the test
// filter matches); prints the kernel's name for the report.
bool checkasm_check_func(bool has_variant, const char *fmt, ...)
    __attribute__((format(printf, 2, 3)));

// Records a failure of the current kernel (printed with the seed).
void checkasm_fail(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
bool checkasm_failed_current(); // the current kernel has failed already

// ------------------------------------------------------------------ random
uint32_t checkasm_rand();
static inline int checkasm_rand_range(int lo, int hi) { // inclusive
    return lo + (int)(checkasm_rand() % (uint32_t)(hi - lo + 1));
}

// Content patterns where rounding and saturation break.
enum CheckasmPattern {
    PAT_RANDOM,
    PAT_ZERO,
    PAT_MAX,
    PAT_CHECKER, // 0/max alternating in x and y
    PAT_BANDS,   // vertical stripes of min/max, widths 1..5
    PAT_SMOOTH,  // gentle ramps with noise
    PAT_COUNT
};
void checkasm_fill_u8(uint8_t *p, ptrdiff_t stride, int w, int h, CheckasmPattern pat);
void checkasm_fill_s16(int16_t *p, ptrdiff_t stride, int w, int h, int lo, int hi,
                       CheckasmPattern pat);
void checkasm_randomize(void *p, size_t bytes);

// Widths worth testing for a kernel handling `unit` elements per step:
// every residue mod 16 around small sizes, every level width of 4160x3120,
// and random sizes up to `max`.  Returns the count written to `out` (<= 64).
int checkasm_widths(int *out, int max);
// Level heights of 3120 plus small and random heights up to `max`.
int checkasm_heights(int *out, int max);

// --------------------------------------------------------- guarded buffers
// A block with `before` and `after` bytes of canary around a payload.  The
// canary pattern is fixed per buffer so two buffers made with the same sizes
// are byte-identical when their payloads are.
struct CheckasmBuf {
    uint8_t *base = nullptr;
    size_t before = 0, size = 0, after = 0;
    void alloc(size_t before, size_t size, size_t after);
    ~CheckasmBuf();
    uint8_t *data() const { return base + before; }
    template <class T> T *as(size_t byte_offset = 0) const { return (T *)(base + before + byte_offset); }
    void copy_from(const CheckasmBuf &o); // same geometry
    // Canaries outside the payload unchanged.  Reports a failure under `name`
    // unless it is null.
    bool canaries_intact(const char *name) const;
};

// Compare two whole blocks byte for byte (payload and canaries), reporting
// the first differences as a small map in units of `elem` bytes with rows of
// `stride` bytes.  Returns true when identical.
bool checkasm_compare_blocks(const char *name, const CheckasmBuf &ref, const CheckasmBuf &opt,
                             size_t stride, int elem);

// Byte/element comparison over a rectangle, with a small map of differences.
bool checkasm_compare_u8(const char *name, const uint8_t *ref, ptrdiff_t ref_stride,
                         const uint8_t *opt, ptrdiff_t opt_stride, int w, int h);
bool checkasm_compare_s16(const char *name, const int16_t *ref, ptrdiff_t ref_stride,
                          const int16_t *opt, ptrdiff_t opt_stride, int w, int h);

// -------------------------------------------------------------------- bench
uint64_t checkasm_now_ns();
void checkasm_report_bench(const char *name, double ref_ns, double opt_ns);
// Times `ref_call` and `opt_call` when --bench is given.
#define CHECKASM_BENCH2(name, ref_call, opt_call)                            \
    do {                                                                     \
        if (checkasm_benching()) {                                           \
            const int reps_ = 16;                                            \
            uint64_t t0_ = checkasm_now_ns();                                \
            for (int r_ = 0; r_ < reps_; ++r_) { ref_call; }                 \
            uint64_t t1_ = checkasm_now_ns();                                \
            for (int r_ = 0; r_ < reps_; ++r_) { opt_call; }                 \
            uint64_t t2_ = checkasm_now_ns();                                \
            checkasm_report_bench(name, (double)(t1_ - t0_) / reps_,         \
                                  (double)(t2_ - t1_) / reps_);              \
        }                                                                    \
    } while (0)
