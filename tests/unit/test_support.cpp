#include "unit/test_support.h"

#include <pthread.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "cam_debug_stub.h"
#include "common/cpu.h"
#include "common/geometry.h"

std::vector<DspVariant> dsp_variants() {
#ifdef __SANITIZE_THREAD__
    // Races do not depend on the kernel table, and every merge is slow under
    // ThreadSanitizer: the running CPU's table alone.
    return {{"cpu", ~0u}};
#endif
    std::vector<DspVariant> v = {{"c", 0u}};
#if defined(VARO_HDR_TEST_SIMDE_NEON)
    const char *neon = "neon_simde";
#else
    const char *neon = "neon";
#endif
    if (hdr_cpu_flags() & HDR_CPU_NEON) v.push_back({neon, (unsigned)HDR_CPU_NEON});
    if (hdr_cpu_flags() & HDR_CPU_SSE41) v.push_back({"sse41", (unsigned)HDR_CPU_SSE41});
    if (hdr_cpu_flags() & HDR_CPU_AVX2) v.push_back({"avx2", (unsigned)(HDR_CPU_SSE41 | HDR_CPU_AVX2)});
    return v;
}

static HdrContext *g_ctx;
static void destroy_shared() { hdrDestroyContext(g_ctx); }

HdrContext *shared_context() {
    if (!g_ctx) {
        if (hdrCreateContext(&g_ctx) != 0) abort();
        atexit(destroy_shared);
    }
    return g_ctx;
}

void set_geometry(HdrContext *ctx, int width, int height, int levels) {
    ctx->width = width;
    ctx->height = height;
    if (levels < 0)
        for (levels = 0; (2 << levels) <= (width < height ? width : height);) ++levels;
    ctx->levels = levels;
    set_level_pitches(ctx);
}

namespace {
pthread_mutex_t g_log_lock = PTHREAD_MUTEX_INITIALIZER;
std::vector<LoggedLine> g_lines;
void sink(void *, int module, int level, const char *func, int line, const char *msg) {
    if (module != 6 || level != 4) return;
    pthread_mutex_lock(&g_log_lock);
    g_lines.push_back(LoggedLine{func, line, msg});
    pthread_mutex_unlock(&g_log_lock);
}
} // namespace

LogCapture::LogCapture() : saved_enable_(g_cam_log[46]) {
    pthread_mutex_lock(&g_log_lock);
    g_lines.clear();
    pthread_mutex_unlock(&g_log_lock);
    cam_debug_set_sink(sink, nullptr);
    g_cam_log[46] = 1;
}

LogCapture::~LogCapture() {
    g_cam_log[46] = saved_enable_;
    cam_debug_set_sink(nullptr, nullptr);
}

std::vector<LoggedLine> LogCapture::lines() const {
    pthread_mutex_lock(&g_log_lock);
    std::vector<LoggedLine> copy = g_lines;
    pthread_mutex_unlock(&g_log_lock);
    return copy;
}

int LogCapture::count(const std::string &text) const {
    int n = 0;
    for (const LoggedLine &l : lines()) n += l.text == text;
    return n;
}

std::string bracket_data_dir() {
    struct stat st;
    return stat(VARO_TEST_DATA_DIR, &st) == 0 && S_ISDIR(st.st_mode) ? VARO_TEST_DATA_DIR : "";
}

uint64_t hash_plane(const uint8_t *p, int stride, int w, int h, uint64_t seed) {
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) seed = (seed ^ p[(size_t)y * stride + x]) * 1099511628211ull;
    return seed;
}
