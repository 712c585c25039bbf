#include "alloc/alloc_hook.h"

#include <pthread.h>
#include <stdint.h>
#include <string.h>

extern "C" void *__libc_malloc(size_t);
extern "C" void __libc_free(void *);
extern "C" void *__libc_calloc(size_t, size_t);
extern "C" void *__libc_realloc(void *, size_t);

namespace {
pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
bool g_armed;
int g_fail_at = -1;
int g_seen;
constexpr int kMax = 4096;
AllocRecord g_records[kMax];
int g_count;
bool g_freed[kMax];
} // namespace

void alloc_hook_arm(int fail_at) {
    pthread_mutex_lock(&g_lock);
    g_armed = true;
    g_fail_at = fail_at;
    g_seen = 0;
    g_count = 0;
    memset(g_freed, 0, sizeof g_freed);
    pthread_mutex_unlock(&g_lock);
}

std::vector<AllocRecord> alloc_hook_disarm() {
    pthread_mutex_lock(&g_lock);
    g_armed = false;
    std::vector<AllocRecord> out;
    int n = g_count;
    pthread_mutex_unlock(&g_lock);
    out.assign(g_records, g_records + n); // may allocate: unlocked and disarmed
    return out;
}

size_t alloc_hook_live() {
    pthread_mutex_lock(&g_lock);
    size_t live = 0;
    for (int i = 0; i < g_count; ++i) live += g_records[i].ptr && !g_freed[i];
    pthread_mutex_unlock(&g_lock);
    return live;
}

extern "C" void *malloc(size_t size) {
    pthread_mutex_lock(&g_lock);
    if (!g_armed) {
        pthread_mutex_unlock(&g_lock);
        return __libc_malloc(size);
    }
    bool fail = g_seen++ == g_fail_at;
    void *p = fail ? nullptr : __libc_malloc(size);
    if (g_count < kMax) g_records[g_count++] = AllocRecord{size, p};
    pthread_mutex_unlock(&g_lock);
    return p;
}

extern "C" void free(void *p) {
    if (!p) return;
    pthread_mutex_lock(&g_lock);
    for (int i = 0; i < g_count; ++i)
        if (g_records[i].ptr == p && !g_freed[i]) {
            g_freed[i] = true;
            break;
        }
    pthread_mutex_unlock(&g_lock);
    __libc_free(p);
}

extern "C" void *calloc(size_t n, size_t size) { return __libc_calloc(n, size); }
extern "C" void *realloc(void *p, size_t size) { return __libc_realloc(p, size); }
