#include "common/cpu.h"

#if defined(__arm__) && defined(__linux__)
#include <sys/auxv.h>
#ifndef HWCAP_NEON
#define HWCAP_NEON (1 << 12)
#endif
#endif

unsigned hdr_cpu_flags() {
    unsigned flags = 0;
#if defined(__aarch64__) || defined(VARO_HDR_TEST_SIMDE_NEON)
    // (Test builds on other hosts run the NEON kernels through SIMDe.)
    flags |= HDR_CPU_NEON;
#elif defined(__arm__) && defined(__linux__)
    if (getauxval(AT_HWCAP) & HWCAP_NEON) flags |= HDR_CPU_NEON;
#endif
    return flags;
}
