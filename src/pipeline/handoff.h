// Hand-off groups between the calling thread and the two workers of a merge:
// three int flags, a mutex and two condition variables each.  Every wait is
// a predicate loop under the group's mutex, so a signal sent before the wait
// and spurious wake-ups are both harmless.  Flags go from 0 to 1 once a call.
#pragma once
#include <stdint.h>

#include "varo_hdr.h"

// The hand-off groups' mutexes and conditions (default attributes), once per
// context at creation, and their release at destruction: the six public
// ones and the two kept behind the record (merge_state.h).
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

// A gate: the worker side waits for g->go and returns *skip as read under the
// mutex.  When it is non-zero the worker acknowledges in its done flag
// (`ack`) before leaving, so the caller can return knowing that no worker
// still touches the context.
int32_t handoff_wait_gate(HdrHandoff *g, const int32_t *skip, int32_t *ack);
