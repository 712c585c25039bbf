/*
 * Desktop stand-in for the phone's camera debug library.  It defines the two
 * symbols varo_hdr leaves undefined (cam_debug_log and g_cam_log) so that the
 * library links and logs on a desktop host, in tools and in tests.  Device
 * builds link the phone's own debug library instead.
 */
#ifndef CAM_DEBUG_STUB_H
#define CAM_DEBUG_STUB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CAM_LOG_MODULES 128

/* Per-module enable table; entry 46 gates every line of varo_hdr. */
extern int32_t g_cam_log[CAM_LOG_MODULES];

void cam_debug_log(int module, int level, const char *func, int line, const char *fmt, ...)
    __attribute__((format(printf, 5, 6)));

/* Receives each formatted line; replaces the default stderr output.
 * Called under the stand-in's lock, from whichever thread logged. */
typedef void (*cam_debug_sink)(void *user, int module, int level, const char *func, int line,
                               const char *message);
void cam_debug_set_sink(cam_debug_sink sink, void *user); /* null restores stderr */

#ifdef __cplusplus
}
#endif

#endif
