#include "pipeline/handoff.h"

#include "pipeline/merge_state.h"

namespace {

// In the order the groups are set up for a merge; the row-split groups,
// behind the public record, last.
struct Groups {
    HdrHandoff *g[8];
    HdrHandoff **begin() { return g; }
    HdrHandoff **end() { return g + 8; }
};
Groups groups(HdrContext *ctx) {
    MergeState *s = merge_state(ctx);
    return {{&ctx->sync_bitmap, &ctx->sync_weight, &ctx->sync_pyramid, &ctx->sync_chroma,
             &ctx->sync_offset, &ctx->sync_motion, &s->sync_rows, &s->sync_tone}};
}

} // namespace

void handoff_create_groups(HdrContext *ctx) {
    for (HdrHandoff *h : groups(ctx)) {
        pthread_mutex_init(&h->mutex, nullptr);
        pthread_cond_init(&h->cond_go, nullptr);
        pthread_cond_init(&h->cond_done, nullptr);
    }
}

void handoff_destroy_groups(HdrContext *ctx) {
    for (HdrHandoff *h : groups(ctx)) {
        pthread_cond_destroy(&h->cond_done);
        pthread_cond_destroy(&h->cond_go);
        pthread_mutex_destroy(&h->mutex);
    }
}

// The previous merge's workers are gone (the caller waited for their last
// hand-off), so the flags are written without the mutexes.
void handoff_reset_groups(HdrContext *ctx) {
    for (HdrHandoff *h : groups(ctx)) h->go = h->le_done = h->he_done = 0;
}

void handoff_wait(HdrHandoff *g, const int32_t *flag, pthread_cond_t *cond) {
    pthread_mutex_lock(&g->mutex);
    while (!*flag) pthread_cond_wait(cond, &g->mutex);
    pthread_mutex_unlock(&g->mutex);
}

void handoff_wait2(HdrHandoff *g, const int32_t *a, const int32_t *b, pthread_cond_t *cond) {
    pthread_mutex_lock(&g->mutex);
    while (!*a || !*b) pthread_cond_wait(cond, &g->mutex);
    pthread_mutex_unlock(&g->mutex);
}

void handoff_signal(HdrHandoff *g, int32_t *flag, pthread_cond_t *cond) {
    pthread_mutex_lock(&g->mutex);
    *flag = 1;
    pthread_cond_signal(cond);
    pthread_mutex_unlock(&g->mutex);
}

void handoff_release(HdrHandoff *g, int32_t *flag, pthread_cond_t *cond) {
    pthread_mutex_lock(&g->mutex);
    *flag = 1;
    pthread_cond_broadcast(cond);
    pthread_mutex_unlock(&g->mutex);
}

int32_t handoff_wait_gate(HdrHandoff *g, const int32_t *skip, int32_t *ack) {
    pthread_mutex_lock(&g->mutex);
    while (!g->go) pthread_cond_wait(&g->cond_go, &g->mutex);
    const int32_t left = *skip;
    if (left) {
        *ack = 1;
        pthread_cond_signal(&g->cond_done);
    }
    pthread_mutex_unlock(&g->mutex);
    return left;
}
