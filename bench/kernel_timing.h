// Per-kernel time inside whole merges: every slot of the active kernel table
// is replaced by a wrapper that times its calls (summed over all threads).
#pragma once
#include <stdint.h>

void kernel_timing_install(); // wraps the running CPU's table; only between merges
void kernel_timing_remove();
void kernel_timing_reset();
// Visits every kernel that ran since the last reset: name, calls, total ns.
void kernel_timing_report(void (*visit)(const char *name, uint64_t calls, uint64_t ns, void *ctx), void *ctx);
