/* A desktop program built against the installed package. */
#include <stdio.h>
#include <varo_hdr.h>

int main(void) {
    HdrContext *ctx;
    HdrMergeStatus s;
    s.struct_size = sizeof s;
    if (hdrCreateContext(&ctx) != 0 || hdrGetMergeStatus(ctx, &s) != 0) return 1;
    printf("%s %s\n", hdrGetVersion(), hdrOutcomeName(s.outcome));
    hdrDestroyContext(ctx);
    return 0;
}
