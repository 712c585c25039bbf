#include "kernel_timing.h"

#include <stddef.h>
#include <time.h>

#include <atomic>

#include "common/cpu.h"
#include "common/dsp.h"

// Every slot of the kernel tables.
#define KERNEL_SLOTS(X)                                                                    \
    X(fusion.weight_well_exposed) X(fusion.weight_normalize) X(fusion.weight_fused)        \
    X(fusion.weight_reduce_h) X(fusion.weight_reduce_v) X(fusion.image_reduce_h)           \
    X(fusion.image_reduce_v) X(fusion.image_expand_h) X(fusion.image_band_v)               \
    X(fusion.residual_copy) X(fusion.band_blend) X(fusion.collapse_expand_h)               \
    X(fusion.collapse_add_v) X(chroma.copy_flip) X(chroma.reduce_h) X(chroma.reduce_v)     \
    X(chroma.expand_h) X(chroma.expand_band) X(chroma.residual) X(chroma.blend)            \
    X(chroma.collapse_h) X(chroma.collapse_v) X(tone.stats) X(tone.map)                    \
    X(reg.bitmap_row[0]) X(reg.bitmap_row[1]) X(reg.bitmap_row[2]) X(reg.bitmap_row[3])    \
    X(reg.bitmap_row[4]) X(reg.bitmap_row[5]) X(reg.bitmap_row_error) X(ghost.mask_rows)   \
    X(ghost.motion_row)

namespace {

// Slots are numbered by their place in the table.
#define SLOT_INDEX(s) (offsetof(HdrDsp, s) / sizeof(void (*)()))
constexpr int kSlots = sizeof(HdrDsp) / sizeof(void (*)());
const char *g_names[kSlots];

std::atomic<uint64_t> g_calls[kSlots], g_ns[kSlots];

uint64_t now_ns() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (uint64_t)ts.tv_sec * 1000000000ull + (uint64_t)ts.tv_nsec;
}

template <int Slot, class F> struct Timed;
template <int Slot, class R, class... A> struct Timed<Slot, R (*)(A...)> {
    static R (*inner)(A...);
    static R call(A... a) {
        const uint64_t t0 = now_ns();
        struct Stop {
            uint64_t t0;
            ~Stop() {
                g_ns[Slot] += now_ns() - t0;
                ++g_calls[Slot];
            }
        } stop{t0};
        return inner(a...);
    }
};
template <int Slot, class R, class... A> R (*Timed<Slot, R (*)(A...)>::inner)(A...);

template <int Slot, class F> void wrap(F &slot) {
    Timed<Slot, F>::inner = slot;
    slot = &Timed<Slot, F>::call;
}

HdrDsp g_timed;

} // namespace

void kernel_timing_install() {
    hdr_dsp_init(&g_timed, hdr_cpu_flags());
#define X(s) wrap<SLOT_INDEX(s)>(g_timed.s), g_names[SLOT_INDEX(s)] = #s;
    KERNEL_SLOTS(X)
#undef X
    hdr_set_dsp_table(&g_timed);
}

void kernel_timing_remove() { hdr_set_cpu_flags_mask(~0u); }

void kernel_timing_reset() {
    for (int i = 0; i < kSlots; ++i) g_calls[i] = 0, g_ns[i] = 0;
}

void kernel_timing_report(void (*visit)(const char *, uint64_t, uint64_t, void *), void *ctx) {
    for (int i = 0; i < kSlots; ++i)
        if (g_calls[i]) visit(g_names[i], g_calls[i], g_ns[i], ctx);
}
