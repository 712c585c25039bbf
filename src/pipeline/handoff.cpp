#include "pipeline/handoff.h"

#include <sys/time.h>

void handoff_init(HdrHandoff *g) {
    pthread_mutex_init(&g->mutex, nullptr);
    pthread_cond_init(&g->cond_go, nullptr);
    pthread_cond_init(&g->cond_done, nullptr);
    g->go = 0;
    g->le_done = 0;
    g->he_done = 0;
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

int32_t handoff_wait_motion(HdrContext *ctx, int32_t *ack) {
    HdrHandoff *g = &ctx->sync_motion;
    pthread_mutex_lock(&g->mutex);
    while (!g->go) pthread_cond_wait(&g->cond_go, &g->mutex);
    int32_t skip = ctx->fusion_skip;
    if (skip) {
        *ack = 1;
        pthread_cond_signal(&g->cond_done);
    }
    pthread_mutex_unlock(&g->mutex);
    return skip;
}

void handoff_wait_workers_left(HdrContext *ctx) {
    HdrHandoff *g = &ctx->sync_motion;
    handoff_wait2(g, &g->le_done, &g->he_done, &g->cond_done);
}

int64_t hdr_now_ms() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return (int64_t)tv.tv_sec * 1000 + tv.tv_usec / 1000;
}
