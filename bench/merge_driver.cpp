// Runs whole merges of a synthetic bracket and nothing else, for counting
// executed instructions under an emulator (bench/arm_icount.sh).
//
//   varo_merge_driver WIDTH HEIGHT MERGES [ref]
//   varo_merge_driver slots
//
// The bracket is built and copied the same way whatever MERGES is, so the
// instructions of MERGES = 1 minus those of MERGES = 0 are one merge's.
// `ref` runs the reference kernel table instead of the running CPU's.
// `slots` prints every kernel slot's reference and selected function
// addresses, so that counts per function can be paired per kernel.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "common/cpu.h"
#include "common/dsp.h"
#include "synthetic_bracket.h"
#include "varo_hdr.h"

int main(int argc, char **argv) {
    if (argc == 2 && !strcmp(argv[1], "slots")) {
        // The tables hold nothing but kernel pointers.
        static_assert(sizeof(HdrDsp) % sizeof(void (*)()) == 0, "kernel table layout");
        HdrDsp r, s;
        hdr_dsp_init(&r, 0);
        hdr_dsp_init(&s, hdr_cpu_flags());
        void (*const *rp)() = (void (*const *)())&r, (*const *sp)() = (void (*const *)())&s;
        for (size_t i = 0; i < sizeof(HdrDsp) / sizeof(void (*)()); ++i)
            printf("%zu %p %p\n", i, (void *)rp[i], (void *)sp[i]);
        return 0;
    }
    if (argc < 4) {
        fprintf(stderr, "usage: %s WIDTH HEIGHT MERGES [ref]\n", argv[0]);
        return 2;
    }
    const int w = atoi(argv[1]), h = atoi(argv[2]), merges = atoi(argv[3]);
    const bool ref = argc > 4 && !strcmp(argv[4], "ref");
    hdr_set_cpu_flags_mask(ref ? 0 : ~0u);

    HdrContext *ctx = nullptr;
    if (hdrCreateContext(&ctx) != 0) return 1;
    BracketOptions o;
    o.he_dx = 3, o.he_dy = -2, o.le_dx = -1, o.le_dy = 2;
    const TestBracket src = make_bracket(w, h, o);
    int rc = 0;
    HdrInput last;
    memset(&last, 0, sizeof last);
    for (int i = 0; i < (merges > 0 ? merges : 1); ++i) {
        TestBracket b = src;
        HdrInput in = b.input();
        if (merges > 0) rc |= hdrThreeFrameCore(ctx, &in);
        last = in;
    }
    hdrDestroyContext(ctx);
    // A fused merge's rectangle is the overlap; a fallback's the whole frame.
    printf("%d merge(s) of %dx%d with the %s kernels: rc %d, output %dx%d at %d,%d\n", merges, w, h,
           ref ? "reference" : "selected", rc, last.out_width, last.out_height, last.out_x, last.out_y);
    return rc == 0 ? 0 : 1;
}
