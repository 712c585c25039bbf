#include "unit/test_support.h"

#include <pthread.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "common/cpu.h"

#include "cam_debug_stub.h"

std::vector<DspVariant> dsp_variants() {
    std::vector<DspVariant> v;
    DspVariant c;
    c.name = "c";
    hdr_dsp_init(&c.table, 0);
    v.push_back(c);
#if HDR_HAVE_NEON
    DspVariant n;
    n.name = "neon";
    hdr_dsp_init(&n.table, HDR_CPU_NEON);
    v.push_back(n);
#elif defined(TEST_SIMDE_NEON)
    DspVariant n;
    n.name = "neon_simde";
    hdr_dsp_init(&n.table, 0);
    hdr_dsp_init_neon(&n.table);
    v.push_back(n);
#endif
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

bool LogCapture::contains(const std::string &text) const { return count(text) > 0; }

int LogCapture::count(const std::string &text) const {
    int n = 0;
    for (const LoggedLine &l : lines()) n += l.text == text;
    return n;
}

std::string bracket_data_dir() {
    struct stat st;
    const char *dir = VARO_TEST_DATA_DIR;
    if (stat(dir, &st) == 0 && S_ISDIR(st.st_mode)) return dir;
    return std::string();
}

uint64_t hash_plane(const uint8_t *p, int stride, int w, int h, uint64_t seed) {
    uint64_t hsh = seed;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            hsh ^= p[(size_t)y * stride + x];
            hsh *= 1099511628211ull;
        }
    return hsh;
}
