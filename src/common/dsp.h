// The kernel tables.  hdr_dsp() is the only place that decides which
// instruction-set variant each stage runs; stages call through it and know
// nothing of the variants.
#pragma once
#include "fusion/chroma_dsp.h"
#include "fusion/fusion_dsp.h"
#include "ghost/ghost_dsp.h"
#include "registration/reg_dsp.h"
#include "tone/tone_dsp.h"

struct HdrDsp {
    FusionDsp fusion;
    ChromaDsp chroma;
    ToneDsp tone;
    RegDsp reg;
    GhostDsp ghost;
};

// Fills every table with the reference kernels, then overlays the variants of
// each instruction set in `flags` (HdrCpuFlags) that this build contains.
void hdr_dsp_init(HdrDsp *dsp, unsigned flags);

// The active table: filled once, on first use, for the running CPU.
const HdrDsp *hdr_dsp();

#ifdef VARO_HDR_TEST_HOOKS
// Test builds only (never in the shipped library): refills the active table
// for hdr_cpu_flags() & mask, so that tests run whole stages with a lower
// instruction set (0: the references).  Only while no merge is running.
void hdr_set_cpu_flags_mask(unsigned mask);
// Replaces the active table (benchmarks that wrap every kernel in a timer);
// hdr_set_cpu_flags_mask(~0u) restores the running CPU's.
void hdr_set_dsp_table(const HdrDsp *table);
#endif
