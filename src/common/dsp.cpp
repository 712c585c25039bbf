#include "common/dsp.h"

#include <pthread.h>

#include "common/cpu.h"

void hdr_dsp_init(HdrDsp *dsp, unsigned flags) {
    fusion_dsp_init_c(&dsp->fusion);
    chroma_dsp_init_c(&dsp->chroma);
    tone_dsp_init_c(&dsp->tone);
    reg_dsp_init_c(&dsp->reg);
    ghost_dsp_init_c(&dsp->ghost);
#if HDR_HAVE_NEON
    if (flags & HDR_CPU_NEON) {
        fusion_dsp_init_neon(&dsp->fusion);
        chroma_dsp_init_neon(&dsp->chroma);
        tone_dsp_init_neon(&dsp->tone);
        reg_dsp_init_neon(&dsp->reg);
        ghost_dsp_init_neon(&dsp->ghost);
    }
#endif
#if HDR_HAVE_X86
    // Cumulative levels: each overlays the one below it.
    if (flags & HDR_CPU_SSE41) {
        fusion_dsp_init_sse41(&dsp->fusion);
        chroma_dsp_init_sse41(&dsp->chroma);
        tone_dsp_init_sse41(&dsp->tone);
        reg_dsp_init_sse41(&dsp->reg);
        ghost_dsp_init_sse41(&dsp->ghost);
    }
    if (flags & HDR_CPU_AVX2) {
        fusion_dsp_init_avx2(&dsp->fusion);
        chroma_dsp_init_avx2(&dsp->chroma);
        tone_dsp_init_avx2(&dsp->tone);
        reg_dsp_init_avx2(&dsp->reg);
        ghost_dsp_init_avx2(&dsp->ghost);
    }
#endif
    (void)flags;
}

static HdrDsp g_active;
static pthread_once_t g_once = PTHREAD_ONCE_INIT;

static void init_active() { hdr_dsp_init(&g_active, hdr_cpu_flags()); }

const HdrDsp *hdr_dsp() {
    pthread_once(&g_once, init_active);
    return &g_active;
}

#ifdef VARO_HDR_TEST_HOOKS
void hdr_set_cpu_flags_mask(unsigned mask) {
    pthread_once(&g_once, init_active);
    hdr_dsp_init(&g_active, hdr_cpu_flags() & mask);
}

void hdr_set_dsp_table(const HdrDsp *table) {
    pthread_once(&g_once, init_active);
    g_active = *table;
}
#endif
