// Bytes each pass of a merge reads and writes, kernel call by kernel call, in
// the order and with the sizes the stages use.  Elements past a level's width
// (row slack) and the few-row borders are left out; per merged pixel P the
// passes sum to about (three frames each where per frame):
//   registration   ~2.0 P per frame (histogram and bitmap rows of the centre
//                  crop, 9 candidate scans per bitmap level and search), and
//                  14 MB of bitmap buffers cleared whatever the frame size
//   motion masks    3 P set to 1, registered luma copied into 3 bases: 6 P;
//                   where ghosts are looked for, the LE pass reads two images
//                   and updates two masks (6 P), the HE pass three and
//                   three (9 P)
//   weights         3 P per frame, normalisation 6 P
//   weight pyramid  reduce_h + reduce_v: 3.25 P_l per level, 4.3 P per frame
//   luma Laplacian  reduce_h, reduce_v, expand_h, band_v: 8.5 P_l per level,
//                   11.3 P per frame
//   chroma Laplacian  copy_flip 1 P, then 8.5 C_k per level (C_0 = P/2)
//   luma blend      11 P_l per level (three bands and weights in, one band
//                   out), collapse 6.5 P_l per level
//   chroma blend and collapse, tone statistics (2 P) and map (4.5 P)
// which at 4160 x 3120 comes to about 145 bytes per pixel, 1.9 GB.  The
// luma, chroma and weight pyramids and both collapses run in strips; the
// bytes of theirs that stay in cache (cached_bytes, 632 MB or about 49 bytes
// per pixel at 4160 x 3120) still count: the floor counts every pass as if
// it went through memory.
#include "traffic.h"

#include <math.h>

#include "varo_hdr.h"

namespace {

double c8(int v) { return (double)((v + 7) & ~7); }

struct Acc {
    std::vector<TrafficPass> passes;
    void add(const char *name, double r, double w, double cached = 0) {
        for (TrafficPass &p : passes)
            if (p.name == name) {
                p.read_bytes += r, p.write_bytes += w, p.cached_bytes += cached;
                return;
            }
        passes.push_back({name, r, w, cached});
    }
};

void registration(Acc &a, int W, int H) {
    const int cw = ((3 * W) >> 8) * 64, ch = ((3 * H) >> 8) * 64;
    for (int f = 0; f < 3; ++f) {
        for (int L = 0; L < 6; ++L) { // every level's buffer is cleared at its full capacity
            const double bw = VARO_HDR_MAX_WIDTH >> L, bh = VARO_HDR_MAX_HEIGHT >> L;
            a.add("registration: bitmap clears", 0, (1024 + 8 * bw) * (5 + ((int)bh >> 5)));
        }
        a.add("registration: bitmaps", (double)cw * ch, 0); // histograms, on level 0's rows
        for (int L = 0; L < 6; ++L) // every (1 << L)-th row, all of its cache lines
            a.add("registration: bitmaps", (double)cw * (ch >> L), 2.0 * (cw >> L) * (ch >> L) / 8);
    }
    for (int search = 0; search < 2; ++search)
        for (int L = 0; L < 6; ++L) {
            const double row = 8.0 * (((cw >> L) >> 5) + 1), rows = ch >> L;
            a.add("registration: offset search", 9 * 2 * row * rows, L == 0 ? 9 * row / 2 * rows : 0);
        }
}

void luma_laplacian(Acc &a, int w, int h, int levels) {
    for (int l = 0; l < levels - 1; ++l, w >>= 1, h >>= 1) {
        const int wn = w >> 1, hn = h >> 1;
        // In strips: the scratch of both pairs, the reduced rows the expand
        // reads and the level rows the band reads (the reduce read them just
        // before) stay in cache.
        a.add("luma pyramid: reduce_h", (double)w * h, 2 * c8(wn) * h, 2 * c8(wn) * h);
        a.add("luma pyramid: reduce_v", 2 * c8(wn) * h, c8(wn) * hn, 2 * c8(wn) * h);
        a.add("luma pyramid: expand_h", (double)wn * hn, 2 * c8(w) * hn, (double)wn * hn + 2 * c8(w) * hn);
        a.add("luma pyramid: band_v", (double)w * h + 2 * c8(w) * hn, 2 * c8(w) * h, (double)w * h + 2 * c8(w) * hn);
    }
    a.add("luma pyramid: residual", (double)w * h, 2.0 * w * h);
}

void weight_pyramid(Acc &a, int w, int h, int levels) {
    for (int l = 1; l < levels; ++l, w >>= 1, h >>= 1) {
        a.add("weight pyramid: reduce_h", (double)w * h, 2 * c8(w >> 1) * h, 2 * c8(w >> 1) * h);
        a.add("weight pyramid: reduce_v", 2 * c8(w >> 1) * h, c8(w >> 1) * (h >> 1), 2 * c8(w >> 1) * h);
    }
}

void chroma_laplacian(Acc &a, int w, int h, int n) {
    const int pairs0 = w >> 1, rows0 = h >> 1, top = n < 3 ? 0 : n - 2;
    a.add("chroma pyramid: copy_flip", 2.0 * pairs0 * rows0, 2.0 * pairs0 * rows0);
    for (int k = 0; k < top; ++k) {
        const double v = 2 * (pairs0 >> k), r = rows0 >> k, vh = v / 2, rh = (rows0 >> k) >> 1;
        // In strips, as the luma pyramid; at level 0 the reduce also reads
        // the rows the copy has just made.
        a.add("chroma pyramid: reduce_h", v * r, 2 * vh * r, 2 * vh * r + (k == 0 ? v * r : 0));
        a.add("chroma pyramid: reduce_v", 2 * vh * r, vh * rh, 2 * vh * r);
        a.add("chroma pyramid: expand_h", vh * rh, 2 * v * rh, vh * rh + 2 * v * rh);
        a.add("chroma pyramid: expand_band", v * r + 2 * v * rh, 2 * v * r, v * r + 2 * v * rh);
    }
    const double v = 2 * (pairs0 >> top), r = rows0 >> top;
    a.add("chroma pyramid: residual", v * r, 2 * v * r);
}

} // namespace

std::vector<TrafficPass> merge_traffic(int in_w, int in_h, int w, int h, bool le_ghost, bool he_ghost) {
    Acc a;
    const int levels = (int)floor(log2((double)(w < h ? w : h)));
    const double P = (double)w * h, in_P = (double)in_w * in_h;
    registration(a, in_w, in_h);
    a.add("motion masks set", 0, 3 * in_P);
    if (le_ghost || he_ghost) {
        a.add("registered luma copy", 3 * P, 3 * P);
        if (le_ghost) a.add("motion mask: LE against AE", 2 * P + 2 * P, 2 * P);
        if (he_ghost) a.add("motion mask: HE against AE", 3 * P + 3 * P, 3 * P);
    } else {
        a.add("registered luma copy", 3 * in_P, 3 * in_P); // whole input rows
    }
    a.add("weights", 3 * 2 * P, 3 * P);
    a.add("weight normalise", 3 * P, 3 * P);
    for (int f = 0; f < 3; ++f) {
        weight_pyramid(a, w, h, levels);
        luma_laplacian(a, w, h, levels);
        chroma_laplacian(a, w, h, levels >> 1);
    }
    for (int l = 0; l < levels; ++l) {
        const double n = c8(w >> l) * (h >> l);
        a.add("luma blend", 3 * 2 * n + 3 * n, 2 * n);
    }
    for (int l = levels - 2; l >= 0; --l) {
        const int wl = w >> l, hl = h >> l;
        // In strips: the scratch, and the level rows the blend has just written.
        a.add("luma collapse", 2.0 * (wl >> 1) * (hl >> 1) + 2 * c8(wl) * (hl >> 1) + 2.0 * wl * hl,
              2 * c8(wl) * (hl >> 1) + 2.0 * wl * hl, 4 * c8(wl) * (hl >> 1) + 2.0 * wl * hl);
    }
    const int n = levels >> 1, pairs0 = w >> 1, rows0 = h >> 1;
    for (int k = 0; k <= n - 2; ++k) {
        const double v = 2 * (pairs0 >> k), r = rows0 >> k;
        a.add("chroma blend", 3 * 2 * v * r + 3.0 * (w >> (k + 1)) * (h >> (k + 1)), 2 * v * r);
    }
    for (int l = n - 3; l >= 0; --l) {
        const double v = 2 * (pairs0 >> l), r = rows0 >> l, r1 = rows0 >> (l + 1), v1 = 2 * (pairs0 >> (l + 1));
        // In strips: the scratch, and the level rows the blend has just written.
        a.add("chroma collapse", 2 * v1 * r1 + 2 * v * r1 + 2 * v * r, 2 * v * r1 + 2 * v * r, 4 * v * r1 + 2 * v * r);
    }
    a.add("tone statistics", 2.0 * (w & ~15) * h, 0);
    a.add("tone map", 2 * P + 2.0 * w * (h >> 1), P + P / 2);
    return a.passes;
}

double traffic_cached(const std::vector<TrafficPass> &passes) {
    double t = 0;
    for (const TrafficPass &p : passes) t += p.cached_bytes;
    return t;
}

double traffic_total(const std::vector<TrafficPass> &passes) {
    double t = 0;
    for (const TrafficPass &p : passes) t += p.read_bytes + p.write_bytes;
    return t;
}
