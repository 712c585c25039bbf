// Logging through the host camera stack's debug library.  The library only
// declares these symbols; the phone's debug library (or the desktop stand-in
// in hostlog/) defines them.
#pragma once
#include <stdint.h>

extern "C" {
extern int32_t g_cam_log[];
void cam_debug_log(int module, int level, const char *func, int line, const char *fmt, ...);
}

enum { HDR_LOG_MODULE = 6, HDR_LOG_LEVEL = 4, HDR_LOG_ENABLE_INDEX = 46 };

// Gated on the module's enable entry; the format is evaluated only when on.
// The host may switch the entry while a merge runs: read it atomically.
#define HDR_LOG_AS(func, fmt, ...)                                                      \
    do {                                                                                \
        if (__atomic_load_n(&g_cam_log[HDR_LOG_ENABLE_INDEX], __ATOMIC_RELAXED))        \
            cam_debug_log(HDR_LOG_MODULE, HDR_LOG_LEVEL, func, __LINE__, fmt, ##__VA_ARGS__); \
    } while (0)

#define HDR_LOG(fmt, ...) HDR_LOG_AS(__func__, fmt, ##__VA_ARGS__)

// Entry/exit lines carry the function name and line inside the message too.
#define HDR_LOG_BEGIN() HDR_LOG("[%s:%d] begin ... ", __func__, __LINE__)
#define HDR_LOG_END() HDR_LOG("[%s:%d] end ... ", __func__, __LINE__)
