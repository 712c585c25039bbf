// Sizes and buffer pairs shared by the chroma kernel checks.
#pragma once
#include <stdio.h>

#include "checkasm/checkasm.h"
#include "common/arith.h"

// A level in pairs and rows, with the pitch the driver gives a chroma level
// whose luma width is `w` (2 * pairs, or one more for an odd parent).
struct ChromaCase {
    int pairs, rows, w;
    int stride() const { return (w + 13) & ~7; }
};

// Every level of 4160x3120, every pair-count residue around small sizes with
// few rows, level and small row counts with random narrow widths.
static inline int chroma_cases(ChromaCase *out, int min_rows) {
    int ws[64], hs[64];
    const int nw = checkasm_widths(ws, 2080), nh = checkasm_heights(hs, 1560);
    int n = 0;
    for (int k = 0; k < 4; ++k) out[n++] = {2080 >> k, 1560 >> k, 4160 >> k};
    for (int i = 0; i < nw; ++i) {
        const int p = ws[i];
        out[n++] = {p, checkasm_rand_range(min_rows, 12), 2 * p + (int)(checkasm_rand() & 1)};
    }
    for (int i = 0; i < nh; ++i) {
        if (hs[i] < min_rows) continue;
        const int p = checkasm_rand_range(1, 40);
        out[n++] = {p, hs[i], 2 * p + (int)(checkasm_rand() & 1)};
    }
    return n;
}

// Reference and optimised copies of one buffer.
struct BufPair {
    CheckasmBuf ref, opt;
    void alloc(size_t before, size_t size, size_t after = 64) {
        ref.alloc(before, size, after);
        opt.copy_from(ref);
    }
    void sync() { opt.copy_from(ref); }
    template <class T> T *r(size_t off = 0) { return ref.as<T>(off); }
    template <class T> T *p(bool use_opt, size_t off = 0) { return (use_opt ? opt : ref).as<T>(off); }
    bool check(const char *name, size_t stride_bytes, int elem) {
        return ref.canaries_intact(name) && opt.canaries_intact(name) &&
               checkasm_compare_blocks(name, ref, opt, stride_bytes, elem);
    }
};

static inline CheckasmPattern case_pattern(int i) { return (CheckasmPattern)(i % PAT_COUNT); }

// Runs `call(table, use_opt)` with the reference and the optimised table,
// and times the pair under --bench when `bench` names it.
template <class F>
void run_both(const HdrDsp &ref, const HdrDsp &opt, F call, const char *bench = nullptr) {
    call(ref, false);
    call(opt, true);
    if (bench) CHECKASM_BENCH2(bench, call(ref, false), call(opt, true));
}

#define CASE_NAME(buf, kernel, c) \
    snprintf(buf, sizeof(buf), "%s %dx%d pitch %d", kernel, (c).pairs, (c).rows, (c).stride())
