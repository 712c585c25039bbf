// Hand-off groups between the calling thread and the two workers of a merge:
// three int flags, a mutex and two condition variables each.  Every wait is
// a predicate loop under the group's mutex, so a signal sent before the wait
// and spurious wake-ups are both harmless.  Flags go from 0 to 1 once a call.
#pragma once
#include <stdint.h>

#include "varo_hdr.h"

// The hand-off groups' mutexes and conditions (default attributes), once per
// context at creation, and their release at destruction: the six public
// ones and the row-split ones behind the record.
void handoff_create_groups(HdrContext *ctx);
void handoff_destroy_groups(HdrContext *ctx);
// Every group's flags to 0, at the start of every merge.
void handoff_reset_groups(HdrContext *ctx);

// Blocks until *flag is set.
void handoff_wait(HdrHandoff *g, const int32_t *flag, pthread_cond_t *cond);
// Blocks until both flags are set.
void handoff_wait2(HdrHandoff *g, const int32_t *a, const int32_t *b, pthread_cond_t *cond);

// Worker side: sets the flag and signals one waiter, under the mutex.
void handoff_signal(HdrHandoff *g, int32_t *flag, pthread_cond_t *cond);
// Caller side: sets the flag and wakes every waiter.  The flag is stored
// under the mutex so the waiters' reads are ordered by it.
void handoff_release(HdrHandoff *g, int32_t *flag, pthread_cond_t *cond);

// Worker side of the motion hand-off: waits for sync_motion.go and returns
// fusion_skip as read under the mutex.  When it is non-zero the worker
// acknowledges in one of sync_motion's spare flags (`ack`) before leaving,
// so the caller can return knowing no worker still touches the context.
int32_t handoff_wait_motion(HdrContext *ctx, int32_t *ack);
// Caller side, on every path that stops the workers: waits for the acks of
// both workers.
void handoff_wait_workers_left(HdrContext *ctx);

// Milliseconds from gettimeofday, as the stage counters keep them.
int64_t hdr_now_ms();

// The exported stage counters are shared by every context, so contexts
// merging at once store and load them atomically (relaxed: each counter is
// a lone value, ordered with nothing else).
inline void hdr_counter_set(int64_t *counter, int64_t value) {
    __atomic_store_n(counter, value, __ATOMIC_RELAXED);
}
inline int64_t hdr_counter_get(const int64_t *counter) {
    return __atomic_load_n(counter, __ATOMIC_RELAXED);
}
// Stamps a stage's start and returns it; the end stamp sets the total too.
int64_t hdr_stage_start(int64_t *start);
void hdr_stage_end(int64_t *end, int64_t *total, int64_t started);
