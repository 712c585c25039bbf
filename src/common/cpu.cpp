#include "common/cpu.h"

#if defined(__arm__) && defined(__linux__)
#include <sys/auxv.h>
#ifndef HWCAP_NEON
#define HWCAP_NEON (1 << 12)
#endif
#endif

#if HDR_HAVE_X86
#include <cpuid.h>

// SSE4.1 needs only the CPU bit; AVX2 also needs the OS to save the YMM state
// on context switches (OSXSAVE set and XCR0 enabling SSE and AVX state).
static unsigned x86_cpu_flags() {
    unsigned a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
    const bool ssse3 = c & (1u << 9), sse41 = c & (1u << 19);
    const bool osxsave = c & (1u << 27), avx = c & (1u << 28);
    if (!ssse3 || !sse41) return 0;
    unsigned flags = HDR_CPU_SSE41;
    if (osxsave && avx) {
        unsigned xcr0_lo, xcr0_hi;
        __asm__ volatile("xgetbv" : "=a"(xcr0_lo), "=d"(xcr0_hi) : "c"(0));
        (void)xcr0_hi;
        if ((xcr0_lo & 6) == 6 && __get_cpuid_max(0, nullptr) >= 7) {
            __cpuid_count(7, 0, a, b, c, d);
            if (b & (1u << 5)) flags |= HDR_CPU_AVX2;
        }
    }
    return flags;
}
#endif

#ifdef VARO_HDR_TEST_HOOKS
#include <stdlib.h>
#include <string.h>

// Test builds: VARO_HDR_CPU caps the level (c: references only).
static unsigned env_mask() {
    const char *s = getenv("VARO_HDR_CPU");
    if (!s || !*s) return ~0u;
    if (!strcmp(s, "c")) return 0;
    if (!strcmp(s, "neon")) return HDR_CPU_NEON;
    if (!strcmp(s, "sse41")) return HDR_CPU_SSE41;
    if (!strcmp(s, "avx2")) return HDR_CPU_SSE41 | HDR_CPU_AVX2;
    return ~0u;
}
#endif

unsigned hdr_cpu_flags() {
    unsigned flags = 0;
#if defined(__aarch64__) || defined(VARO_HDR_TEST_SIMDE_NEON)
    // (Test builds on other hosts run the NEON kernels through SIMDe.)
    flags |= HDR_CPU_NEON;
#elif defined(__arm__) && defined(__linux__)
    if (getauxval(AT_HWCAP) & HWCAP_NEON) flags |= HDR_CPU_NEON;
#endif
#if HDR_HAVE_X86
    flags |= x86_cpu_flags();
#endif
#ifdef VARO_HDR_TEST_HOOKS
    flags &= env_mask();
#endif
    return flags;
}
