// Strip drivers of the pyramids (luma, weights and chroma) and of the
// collapses: a horizontal pass fills the 16-bit scratch rows of a strip, the
// vertical pass emits that strip's output rows while they are still in cache,
// instead of a whole plane going out to memory and back.  Every source row is
// filtered exactly once and in increasing order, so the in-place row pads and
// every scratch element a pass writes hold the bytes of whole-plane passes; the
// rows two strips share are moved to the front of the scratch, not filtered
// again.  (The elements no pass writes, the last 7 of each expanded row of an
// odd-width level whose source width is a whole number of column groups, 16 for
// the image and 8 for the collapse, reach only the columns past the level's
// width, as before.)
#pragma once
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "common/arith.h"
#include "fusion/fusion_dsp.h"

// Scratch bytes of one strip: well inside a core's L2 with the rows the
// vertical pass reads and writes beside them.  At 4160 x 3120 strips of 96 to
// 512 KiB ran the stages alike; 32 KiB (a handful of rows at level 0, more
// of them shared between strips) was slower.
static const size_t kStripBytes = 192 * 1024;

// Scratch rows of one strip: about kStripBytes, at least 8.
static inline int strip_rows(size_t row_bytes) {
    const size_t n = kStripBytes / row_bytes;
    return n < 8 ? 8 : (int)n;
}

// Scratch rows first .. end-1, held at the start of the scratch.
template <class T> struct StripWindow {
    T *buf;
    ptrdiff_t pitch;
    int first = 0, end = 0;
    // Drops the rows before `from`; returns where row `end` goes.
    T *keep_from(int from) {
        if (from > first) {
            memmove(buf, buf + (from - first) * pitch, (size_t)(end - from) * pitch * sizeof(T));
            first = from;
        }
        return buf + (end - first) * pitch;
    }
};

// One level of a reduce: src (w x h) to dst (w >> 1 x h >> 1) through t.
static inline void reduce_strips(reduce_h_fn hpass, reduce_v_fn vpass, uint8_t *dst, ptrdiff_t dst_stride,
                                 uint8_t *src, ptrdiff_t src_stride, int w, int h, uint16_t *t) {
    const int ow = (int)ceil8((unsigned)(w >> 1)), oh = h >> 1;
    const int step = strip_rows((size_t)ow * sizeof(uint16_t)) / 2;
    StripWindow<uint16_t> win{t, ow};
    for (int y0 = 0; y0 < oh; y0 += step) {
        const int y1 = y0 + step < oh ? y0 + step : oh;
        // The last strip filters the odd last row too, which no output reads.
        const int to = y1 < oh ? reduce_v_end(y1, oh) : h;
        uint16_t *next = win.keep_from(reduce_v_first(y0));
        hpass(next, src + win.end * src_stride, src_stride, w, to - win.end);
        win.end = to;
        vpass(dst, dst_stride, t, ow, oh, y0, y1);
    }
}

// One level of an expand to w x h output rows: hpass(scratch, row, count)
// expands source rows row .. row+count-1 into scratch rows of ceil8(w)
// elements, vpass(scratch, y0, y1) emits output rows y0 .. y1-1 from scratch
// rows held from expand_v_first(y0) on.
template <class T, class HPass, class VPass>
static inline void expand_strips(T *t, int w, int h, HPass hpass, VPass vpass) {
    const ptrdiff_t pitch = ceil8((unsigned)w);
    const int step = 2 * strip_rows((size_t)pitch * sizeof(T));
    StripWindow<T> win{t, pitch};
    for (int y0 = 0; y0 < h; y0 += step) {
        const int y1 = y0 + step < h ? y0 + step : h, to = expand_v_end(y1, h);
        T *next = win.keep_from(expand_v_first(y0));
        hpass(next, win.end, to - win.end);
        win.end = to;
        vpass((const T *)t, y0, y1);
    }
}

// One level of a Laplacian pyramid, h rows, whose reduce has hn rows: the
// band of each strip against the expanded coarser level.  The reduce runs a
// few rows ahead of the band, so the level's rows are still in cache when the
// band reads them, and the coarser level's when the expand does.  Every pass
// still sees its rows in the state a whole-level pass would leave them: the
// level is padded (by the reduce) beyond the band's rows, and the coarser
// level is made two rows beyond the expand's, whose loads reach into the next
// rows.  Scratch rows: ov elements for the reduce, ev for the expand.
//   prepare(to):            source rows up to `to` must exist (before the reduce reads them)
//   reduce_h(t, row, n):    source rows row .. row+n-1 into scratch at t
//   reduce_v(t, y0, y1):    coarser rows y0 .. y1-1 from the scratch at t
//   expand_h(t, row, n):    coarser rows row .. row+n-1 into scratch at t
//   band(t, y0, y1):        band rows y0 .. y1-1 from the scratch at t
template <class T, class Prepare, class ReduceH, class ReduceV, class ExpandH, class Band>
static inline void laplacian_strips(T *scratch, ptrdiff_t ov, ptrdiff_t ev, int h, int hn, Prepare prepare,
                                    ReduceH reduce_h, ReduceV reduce_v, ExpandH expand_h, Band band) {
    const int step = 2 * strip_rows((size_t)ev * sizeof(T));
    // The reduce holds at most step + 10 rows; the expand's rows follow them.
    const size_t reduce_rows = (size_t)(h < step + 10 ? h : step + 10);
    StripWindow<T> rwin{scratch, ov}, ewin{scratch + ((reduce_rows * ov + 31) & ~(size_t)31), ev};
    int done = 0; // rows of the coarser level made
    for (int y0 = 0; y0 < h; y0 += step) {
        const int y1 = y0 + step < h ? y0 + step : h, rows = expand_v_end(y1, h);
        const int target = rows + 2 < hn ? rows + 2 : hn;
        if (target > done) {
            const int to = target < hn ? reduce_v_end(target, hn) : h; // the odd last row too, as a whole pass
            prepare(to);
            T *next = rwin.keep_from(reduce_v_first(done));
            reduce_h(next, rwin.end, to - rwin.end);
            rwin.end = to;
            reduce_v((const T *)rwin.buf, done, target);
            done = target;
        }
        T *next = ewin.keep_from(expand_v_first(y0));
        expand_h(next, ewin.end, rows - ewin.end);
        ewin.end = rows;
        band((const T *)ewin.buf, y0, y1);
    }
}
