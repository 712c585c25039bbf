#include "common/cpu.h"

#if defined(__arm__) && defined(__linux__)
#include <sys/auxv.h>
#ifndef HWCAP_NEON
#define HWCAP_NEON (1 << 12)
#endif
#endif

unsigned hdr_cpu_flags() {
    unsigned flags = 0;
#if defined(__aarch64__)
    flags |= HDR_CPU_NEON;
#elif defined(__arm__) && defined(__linux__)
    if (getauxval(AT_HWCAP) & HWCAP_NEON) flags |= HDR_CPU_NEON;
#endif
    return flags;
}
