// Context creation and destruction: every buffer of a merge is taken here,
// sized for the 4160 x 3120 capacity.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "api/pool.h"
#include "common/log.h"
#include "pipeline/handoff.h"
#include "pipeline/merge_state.h"
#include "varo_hdr.h"

namespace {

constexpr int kMaxW = VARO_HDR_MAX_WIDTH;
constexpr int kMaxH = VARO_HDR_MAX_HEIGHT;
constexpr int kAlign = 64;
constexpr size_t kSlack = 80;

size_t round8(size_t v) { return v & ~(size_t)7; }

} // namespace

size_t pool_bitmap_bytes(int l) {
    size_t w = kMaxW >> l, h = kMaxH >> l;
    return (1024 + 8 * w) * (5 + (h >> 5));
}
size_t pool_weight_bytes(int l) {
    return round8((kMaxH >> l) + 24) * (size_t)(kMaxW >> l) + kSlack;
}
size_t pool_band_bytes(int l) {
    return round8((kMaxH >> l) + 24) * (size_t)(kMaxW >> l) * 2 + kSlack;
}
size_t pool_chroma_band_bytes(int k) {
    return round8((kMaxH >> (k + 1)) + 25) * (size_t)(kMaxW >> (k + 1)) * 4 + kSlack;
}

namespace {

// One kind of buffer: `frames` x `levels` blocks of bytes(level), each handed
// out `inner` bytes past its 64-aligned start, in this order (the bitmaps walk
// frames and levels downwards).  A failed block prints `message` with the
// frame and level, or with the level alone.
struct PoolGroup {
    int frames, levels;
    bool downwards;
    size_t (*bytes)(int level);
    size_t inner;
    const char *message;
    bool level_only;
    void *(*get)(const HdrContext *ctx, int f, int l);
    void (*set)(HdrContext *ctx, int f, int l, uint8_t *p);
};

// 18 bitmaps, 33 weights, 6 gaussians, 33 bands, 30 chroma bands and 3 + 3
// frame planes: with the record itself, 127 blocks.
const PoolGroup kPool[] = {
    {3, VARO_HDR_BITMAP_LEVELS, true, [](int l) { return pool_bitmap_bytes(l) + kSlack; }, 0,
     "hrd_creat malloc failed 3\n", false,
     [](const HdrContext *c, int f, int l) -> void * { return c->bitmap_pyramid[f][l].buffer; },
     [](HdrContext *c, int f, int l, uint8_t *p) { c->bitmap_pyramid[f][l].buffer = p; }},
    {3, VARO_HDR_MAX_LEVELS, false, pool_weight_bytes, 16, "malloc w_gaussian_pyramid [%d, %d] failed\n", false,
     [](const HdrContext *c, int f, int l) -> void * { return c->w_gaussian_pyramid[f][l]; },
     [](HdrContext *c, int f, int l, uint8_t *p) { c->w_gaussian_pyramid[f][l] = p; }},
    {3, 2, false, [](int l) -> size_t { return l ? POOL_GAUSS1_BYTES : POOL_GAUSS0_BYTES; }, 16,
     "malloc img_gaussian_pyramid %d failed\n", true,
     [](const HdrContext *c, int f, int l) -> void * { return c->img_gaussian_pyramid[f][l]; },
     [](HdrContext *c, int f, int l, uint8_t *p) { c->img_gaussian_pyramid[f][l] = p; }},
    {3, VARO_HDR_MAX_LEVELS, false, pool_band_bytes, 32, "malloc img_laplacian_pyramid [%d, %d, IY] failed\n", false,
     [](const HdrContext *c, int f, int l) -> void * { return c->img_laplacian_pyramid[f][l].IY; },
     [](HdrContext *c, int f, int l, uint8_t *p) { c->img_laplacian_pyramid[f][l].IY = (int16_t *)p; }},
    {3, VARO_HDR_MAX_LEVELS - 1, false, pool_chroma_band_bytes, 32,
     "malloc img_laplacian_pyramid [%d, %d, IC] failed\n", false,
     [](const HdrContext *c, int f, int l) -> void * { return c->img_laplacian_pyramid[f][l].IC; },
     [](HdrContext *c, int f, int l, uint8_t *p) { c->img_laplacian_pyramid[f][l].IC = (int16_t *)p; }},
    {3, 1, false, [](int) -> size_t { return POOL_FRAME16_BYTES; }, 0, "malloc inter_buf failed\n", false,
     [](const HdrContext *c, int f, int) -> void * { return c->inter_buf[f]; },
     [](HdrContext *c, int f, int, uint8_t *p) { c->inter_buf[f] = (int16_t *)p; }},
    {3, 1, false, [](int) -> size_t { return POOL_FRAME16_BYTES; }, 0, "hrd_creat malloc failed 9\n", false,
     [](const HdrContext *c, int f, int) -> void * { return c->motion_mask[f]; },
     [](HdrContext *c, int f, int, uint8_t *p) { c->motion_mask[f] = p; }},
};

// Calls fn(group, f, l) for every block of the pool in allocation order;
// stops when fn returns false.
template <class Fn> bool for_each_block(Fn fn) {
    for (const PoolGroup &g : kPool)
        for (int i = 0; i < g.frames; ++i)
            for (int j = 0; j < g.levels; ++j)
                if (!fn(g, g.downwards ? g.frames - 1 - i : i, g.downwards ? g.levels - 1 - j : j))
                    return false;
    return true;
}

// Frees every block the record holds (null ones are skipped), so that the
// record left by a failed creation is released the same way as a full one.
void release_blocks(HdrContext *ctx) {
    for_each_block([ctx](const PoolGroup &g, int f, int l) {
        if (void *p = g.get(ctx, f, l)) free(pool_unalign((uint8_t *)p - g.inner));
        return true;
    });
}

} // namespace

extern "C" VARO_HDR_API int hdrCreateContext(HdrContext **out) {
    HDR_LOG_BEGIN();
    // The merge's own state sits behind the public record (pipeline/merge_state.h).
    void *raw = malloc(sizeof(HdrContextBlock) + 128);
    if (!raw) {
        puts("hrd_creat malloc failed 0");
        HDR_LOG_END();
        return VARO_HDR_ERR_NOMEM;
    }
    HdrContext *ctx = (HdrContext *)pool_align(raw, kAlign);
    memset(ctx, 0, sizeof(HdrContextBlock));
    *out = ctx;

    const bool complete = for_each_block([ctx](const PoolGroup &g, int f, int l) {
        void *p = malloc(g.bytes(l));
        if (!p) {
            printf(g.message, g.level_only ? l : f, l);
            return false;
        }
        g.set(ctx, f, l, pool_align(p, kAlign) + g.inner);
        return true;
    });
    if (!complete) {
        // The buffers are returned and the record keeps null pointers only, so
        // a host may still pass it to hdrDestroyContext (which then frees just it).
        release_blocks(ctx);
        memset(ctx, 0, sizeof(*ctx));
        HDR_LOG_AS("hdrCreateContext", "[%s:%d] end ... ", "hdrCreateContext", __LINE__);
        return VARO_HDR_ERR_NOMEM;
    }
    for (int f = 0; f < 3; ++f)
        for (int l = 0; l < VARO_HDR_BITMAP_LEVELS; ++l)
            ctx->bitmap_pyramid[f][l].buffer_bytes = (uint32_t)(pool_bitmap_bytes(l) + 16);

    handoff_create_groups(ctx);
    HDR_LOG_END();
    return VARO_HDR_OK;
}

extern "C" VARO_HDR_API int hdrDestroyContext(HdrContext *ctx) {
    if (!ctx) return VARO_HDR_OK;
    // A failed creation leaves an all-zero record whose groups were never set up.
    if (ctx->motion_mask[HE_IDX]) handoff_destroy_groups(ctx);
    release_blocks(ctx);
    free(pool_unalign(ctx));
    HDR_LOG_END();
    return VARO_HDR_OK;
}
