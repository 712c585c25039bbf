// Our merge beside OpenCV's AlignMTB + MergeMertens on the same frames, and
// both beside the memory bandwidth of the machine, in one run:
//
//   varo_side_by_side [--reps N] [--cv-reps N] [--set DIR] [--no-opencv] [--no-kernels]
//                     [--passes]
//
// Cases: a real bracket set resampled to 4160x3120 (skipped when the folder
// is absent), a synthetic 4160x3120 bracket and a synthetic 1920x1080 one.
// Per case: our merge (median of N, one context for all), the library's stage
// counters (medians), OpenCV on the same frames as 8-bit BGR, a STREAM triad
// measured just before, and the traffic floor: the bytes the merge's passes
// stream (bench/traffic.cpp) over the best triad bandwidth.  Then the time of
// every kernel inside the merges (wrapped kernel table, summed over threads).
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <time.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "kernel_timing.h"
#include "traffic.h"
#include "synthetic_bracket.h"
#include "varo_hdr.h"

#if VARO_BENCH_REAL_SETS
#include "merge_support.h"
#endif
#if VARO_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/photo.hpp>
#endif

namespace {

// The library prints a line on standard output at every merge; the report
// goes to the original standard output, the merges' lines to /dev/null.
FILE *g_out = stdout;
#define say(...) fprintf(g_out, __VA_ARGS__)

double now_ms() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec * 1e3 + (double)ts.tv_nsec * 1e-6;
}

struct Stats {
    double med, lo, hi;
};
Stats stats(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return {n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2, v.front(), v.back()};
}

// One bracket: each frame's luma, chroma and the slack the merge may read
// past them, in one block.
struct Case {
    std::string name;
    int w = 0, h = 0;
    std::vector<uint8_t> frame[3];
    uint32_t units[3] = {0, 0, 0};
};

Case synthetic_case(int w, int h) {
    BracketOptions o;
    o.he_dx = 3, o.he_dy = -2, o.le_dx = -1, o.le_dy = 2;
    TestBracket b = make_bracket(w, h, o);
    Case c;
    c.name = "synthetic " + std::to_string(w) + "x" + std::to_string(h);
    c.w = w, c.h = h;
    for (int f = 0; f < 3; ++f) c.frame[f] = b.frame[f].buf, c.units[f] = b.units[f];
    return c;
}

#if VARO_BENCH_REAL_SETS
bool real_case(const std::string &dir, int w, int h, Case *c) {
    varo_merge::Options opt;
    opt.bracket_dir = dir;
    opt.width = w, opt.height = h;
    varo_merge::Inputs in;
    std::string err;
    if (!varo_merge::load_inputs(opt, &in, &err)) {
        say("real set %s: %s\n", dir.c_str(), err.c_str());
        return false;
    }
    varo_merge::Frames fr;
    varo_merge::make_frames(in, &fr);
    c->name = dir.substr(dir.find_last_of('/') + 1) + " " + std::to_string(fr.width) + "x" + std::to_string(fr.height);
    c->w = fr.width, c->h = fr.height;
    for (int f = 0; f < 3; ++f) {
        c->frame[f].assign(fr.buf[f]->luma(), fr.buf[f]->luma() + fr.buf[f]->bytes());
        c->units[f] = in.units[f];
    }
    return true;
}
#endif

// STREAM triad a = b + s * c over arrays far larger than the caches, split
// over the cores; counted as STREAM counts it (3 arrays x 8 bytes per
// element, no write-allocate).  GB/s: best and median of `reps`.
Stats triad_gbps(int reps) {
    const size_t n = (size_t)8 << 20;
    std::vector<double> a(n, 0.0), b(n, 1.0), c(n, 2.0);
    const int threads = std::max(1u, std::thread::hardware_concurrency());
    std::vector<double> gbps;
    for (int r = 0; r < reps; ++r) {
        const double t0 = now_ms();
        std::vector<std::thread> pool;
        for (int t = 0; t < threads; ++t)
            pool.emplace_back([&, t] {
                const size_t lo = n * t / threads, hi = n * (t + 1) / threads;
                double *pa = a.data();
                const double *pb = b.data(), *pc = c.data();
                for (size_t i = lo; i < hi; ++i) pa[i] = pb[i] + 3.0 * pc[i];
            });
        for (std::thread &t : pool) t.join();
        gbps.push_back(3.0 * 8 * n / ((now_ms() - t0) * 1e6));
    }
    if (a[n / 2] != 7.0) say("triad: wrong result\n");
    Stats s = stats(gbps);
    return {s.med, s.lo, s.hi};
}

struct Options {
    int reps = 15, cv_reps = 3, kernel_reps = 5;
    std::string set = std::string(VARO_DATA_DIR) + "/iphonexr_night_street";
    bool opencv = true, kernels = true, passes = false;
};

struct OursResult {
    Stats ms;
    Stats stage[4]; // registration, motion, fusion, weights
    int rc = 0, out_w = 0, out_h = 0;
    bool fused = false, le_ghost = false, he_ghost = false;
};

OursResult run_ours(HdrContext *ctx, const Case &c, int reps) {
    std::vector<uint8_t> work[3];
    std::vector<double> ms, st[4];
    OursResult r;
    for (int i = -1; i < reps; ++i) { // one warm-up merge
        HdrInput in;
        memset(&in, 0, sizeof in);
        for (int f = 0; f < 3; ++f) {
            work[f] = c.frame[f];
            in.frame[f].luma = work[f].data();
            in.frame[f].chroma = work[f].data() + (size_t)c.w * c.h;
            in.exposure[f].exposure_scale = 1.0f;
            in.exposure[f].exposure_units = c.units[f];
        }
        in.width = c.w, in.height = c.h;
        const double t0 = now_ms();
        r.rc = hdrThreeFrameCore(ctx, &in);
        const double t = now_ms() - t0;
        if (i < 0) continue;
        ms.push_back(t);
        st[0].push_back((double)total_time_1), st[1].push_back((double)total_time_4);
        st[2].push_back((double)total_time_5), st[3].push_back((double)total_time_6);
        r.out_w = in.out_width, r.out_h = in.out_height;
        r.fused = r.rc == 0 && (in.out_width != c.w || in.out_height != c.h || total_time_6 > 0);
        r.le_ghost = ctx->le_flag != 0, r.he_ghost = ctx->he_flag != 0;
    }
    r.ms = stats(ms);
    for (int k = 0; k < 4; ++k) r.stage[k] = stats(st[k]);
    return r;
}

#if VARO_BENCH_OPENCV
// AlignMTB then MergeMertens on the three frames converted to 8-bit BGR.
void run_opencv(const Case &c, int reps, Stats *align, Stats *total) {
    std::vector<cv::Mat> bgr(3);
    for (int f = 0; f < 3; ++f) {
        cv::Mat nv12(c.h * 3 / 2, c.w, CV_8UC1, (void *)c.frame[f].data());
        cv::cvtColor(nv12, bgr[f], cv::COLOR_YUV2BGR_NV12);
    }
    const std::vector<cv::Mat> src = {bgr[LE_IDX], bgr[AE_IDX], bgr[HE_IDX]};
    cv::Ptr<cv::AlignMTB> aligner = cv::createAlignMTB();
    cv::Ptr<cv::MergeMertens> merger = cv::createMergeMertens();
    std::vector<double> a, t;
    for (int i = 0; i < reps; ++i) {
        std::vector<cv::Mat> aligned;
        cv::Mat fused;
        const double t0 = now_ms();
        aligner->process(src, aligned);
        const double t1 = now_ms();
        merger->process(aligned, fused);
        const double t2 = now_ms();
        a.push_back(t1 - t0), t.push_back(t2 - t0);
    }
    *align = stats(a), *total = stats(t);
}
#endif

void print_kernels(const OursResult &r, int reps, double wall_ms) {
    struct Row {
        const char *name;
        uint64_t calls, ns;
    };
    std::vector<Row> rows;
    kernel_timing_report([](const char *n, uint64_t calls, uint64_t ns, void *v) {
        ((std::vector<Row> *)v)->push_back({n, calls, ns}); }, &rows);
    std::sort(rows.begin(), rows.end(), [](const Row &a, const Row &b) { return a.ns > b.ns; });
    double sum = 0;
    for (const Row &k : rows) sum += (double)k.ns;
    say("  kernels inside the merge (median merge %.1f ms; %d timed merges, all threads):\n", r.ms.med, reps);
    say("    %-28s %10s %10s %7s\n", "kernel", "ms/merge", "calls", "share");
    for (const Row &k : rows)
        say("    %-28s %10.2f %10.0f %6.1f%%\n", k.name, (double)k.ns / 1e6 / reps,
               (double)k.calls / reps, 100.0 * (double)k.ns / sum);
    say("    %-28s %10.2f   (thread time; the wrapped merges took %.1f ms wall each)\n", "sum", sum / 1e6 / reps,
           wall_ms);
}

} // namespace

int main(int argc, char **argv) {
    Options o;
    const int report_fd = dup(1), null_fd = open("/dev/null", O_WRONLY);
    if (report_fd >= 0 && null_fd >= 0 && (g_out = fdopen(report_fd, "w")) != nullptr) {
        fflush(stdout);
        dup2(null_fd, 1);
        setvbuf(g_out, nullptr, _IOLBF, 0);
    } else {
        g_out = stdout;
    }
    for (int i = 1; i < argc; ++i) {
        if (!strncmp(argv[i], "--reps=", 7)) o.reps = atoi(argv[i] + 7);
        else if (!strncmp(argv[i], "--cv-reps=", 10)) o.cv_reps = atoi(argv[i] + 10);
        else if (!strncmp(argv[i], "--set=", 6)) o.set = argv[i] + 6;
        else if (!strcmp(argv[i], "--no-opencv")) o.opencv = false;
        else if (!strcmp(argv[i], "--no-kernels")) o.kernels = false;
        else if (!strcmp(argv[i], "--passes")) o.passes = true;
        else {
            say("usage: %s [--reps=N] [--cv-reps=N] [--set=DIR] [--no-opencv] [--no-kernels] [--passes]\n", argv[0]);
            return 2;
        }
    }
    // Medians of nothing: --cv-reps=0 means --no-opencv.
    if (o.cv_reps < 1) o.opencv = false;
    if (o.reps < 1) {
        say("--reps must be at least 1\n");
        return 2;
    }
#if !VARO_BENCH_OPENCV
    if (o.opencv) say("built without OpenCV: no OpenCV column (install libopencv-dev and reconfigure)\n");
    o.opencv = false;
#endif

    std::vector<Case> cases;
#if VARO_BENCH_REAL_SETS
    struct stat sb;
    if (stat(o.set.c_str(), &sb) == 0) {
        Case c;
        if (real_case(o.set, 4160, 3120, &c)) cases.push_back(std::move(c));
    } else {
        say("real set %s absent: skipped\n", o.set.c_str());
    }
#else
    say("built without the image tools: no real set\n");
#endif
    cases.push_back(synthetic_case(4160, 3120));
    cases.push_back(synthetic_case(1920, 1080));

    HdrContext *ctx = nullptr;
    if (hdrCreateContext(&ctx) != 0) return 1;
    say("%u hardware threads; %d merges per case (medians, [min..max]), OpenCV %d\n",
           std::thread::hardware_concurrency(), o.reps, o.opencv ? o.cv_reps : 0);
    for (const Case &c : cases) {
        const Stats bw = triad_gbps(7);
        const OursResult r = run_ours(ctx, c, o.reps);
        const std::vector<TrafficPass> passes = merge_traffic(c.w, c.h, r.out_w, r.out_h, r.le_ghost, r.he_ghost);
        const double bytes = traffic_total(passes), floor_ms = bytes / (bw.hi * 1e6);
        say("\n== %s: %s, rc %d, output %dx%d, ghost masks %s\n", c.name.c_str(),
            r.fused ? "fused" : "NOT FUSED (fell back)", r.rc, r.out_w, r.out_h,
            r.le_ghost && r.he_ghost ? "LE and HE" : r.le_ghost ? "LE" : r.he_ghost ? "HE" : "none");
        say("  ours          %8.1f ms [%.1f..%.1f]\n", r.ms.med, r.ms.lo, r.ms.hi);
        say("  stages (ms)   registration %.0f [%.0f..%.0f], motion %.0f, fusion %.0f [%.0f..%.0f], "
               "weights %.0f\n", r.stage[0].med, r.stage[0].lo, r.stage[0].hi, r.stage[1].med, r.stage[2].med,
               r.stage[2].lo, r.stage[2].hi, r.stage[3].med);
        say("  triad         %8.2f GB/s best, %.2f median, %.2f worst\n", bw.hi, bw.med, bw.lo);
        say("  traffic       %8.0f MB (%.0f bytes per pixel); floor %.1f ms; ours / floor %.2f\n", bytes / 1e6,
               bytes / ((double)c.w * c.h), floor_ms, r.ms.med / floor_ms);
#if VARO_BENCH_OPENCV
        if (o.opencv) {
            Stats align, total;
            run_opencv(c, o.cv_reps, &align, &total);
            say("  OpenCV        %8.1f ms [%.1f..%.1f] (AlignMTB %.1f + MergeMertens %.1f); OpenCV / ours %.1f\n",
                   total.med, total.lo, total.hi, align.med, total.med - align.med, total.med / r.ms.med);
        }
#endif
        if (o.passes) {
            say("  passes (MB read + written; of them kept in cache by the strips):\n");
            for (const TrafficPass &p : passes) {
                say("    %-32s %8.1f + %8.1f", p.name.c_str(), p.read_bytes / 1e6, p.write_bytes / 1e6);
                if (p.cached_bytes > 0) say("; %.1f in cache", p.cached_bytes / 1e6);
                say("\n");
            }
            const double cached = traffic_cached(passes);
            say("  in cache %.0f MB; the rest over the best triad %.1f ms\n", cached / 1e6,
                (bytes - cached) / (bw.hi * 1e6));
        }
        if (o.kernels) { // counts include run_ours' warm-up merge
            kernel_timing_install();
            kernel_timing_reset();
            const OursResult k = run_ours(ctx, c, o.kernel_reps);
            kernel_timing_remove();
            print_kernels(r, o.kernel_reps + 1, k.ms.med);
        }
    }
    hdrDestroyContext(ctx);
    return 0;
}
