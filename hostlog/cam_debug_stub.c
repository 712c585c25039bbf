#include "cam_debug_stub.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

int32_t g_cam_log[CAM_LOG_MODULES];

static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static cam_debug_sink g_sink;
static void *g_user;

void cam_debug_set_sink(cam_debug_sink sink, void *user) {
    pthread_mutex_lock(&g_lock);
    g_sink = sink;
    g_user = user;
    pthread_mutex_unlock(&g_lock);
}

void cam_debug_log(int module, int level, const char *func, int line, const char *fmt, ...) {
    char msg[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(msg, sizeof msg, fmt, ap);
    va_end(ap);
    pthread_mutex_lock(&g_lock);
    if (g_sink)
        g_sink(g_user, module, level, func, line, msg);
    else
    {
        size_t len = strlen(msg);
        fprintf(stderr, "cam[%d/%d] %s:%d: %s%s", module, level, func, line, msg,
                len && msg[len - 1] == '\n' ? "" : "\n");
    }
    pthread_mutex_unlock(&g_lock);
}
