#include "alloc/alloc_hook.h"

#include <pthread.h>
#include <string.h>

extern "C" void *__libc_malloc(size_t);
extern "C" void __libc_free(void *);

namespace {
pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
bool g_armed;
int g_fail_at = -1, g_count;
AllocRecord g_records[4096];
bool g_freed[4096];
} // namespace

void alloc_hook_arm(int fail_at) {
    pthread_mutex_lock(&g_lock);
    g_armed = true;
    g_fail_at = fail_at;
    g_count = 0;
    memset(g_freed, 0, sizeof g_freed);
    pthread_mutex_unlock(&g_lock);
}

std::vector<AllocRecord> alloc_hook_disarm() {
    pthread_mutex_lock(&g_lock);
    g_armed = false;
    pthread_mutex_unlock(&g_lock);
    return std::vector<AllocRecord>(g_records, g_records + g_count); // may allocate: disarmed
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
    void *p = g_armed && g_count == g_fail_at ? nullptr : __libc_malloc(size);
    if (g_armed && g_count < 4096) g_records[g_count++] = AllocRecord{size, p};
    pthread_mutex_unlock(&g_lock);
    return p;
}

extern "C" void free(void *p) {
    pthread_mutex_lock(&g_lock);
    for (int i = 0; p && i < g_count; ++i)
        if (g_records[i].ptr == p && !g_freed[i]) {
            g_freed[i] = true;
            break;
        }
    pthread_mutex_unlock(&g_lock);
    __libc_free(p);
}
