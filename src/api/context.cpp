// Context creation and destruction: every buffer of a merge is taken here,
// sized for the 4160 x 3120 capacity.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "api/pool.h"
#include "common/log.h"
#include "pipeline/handoff.h"
#include "varo_hdr.h"

namespace {

constexpr int kMaxW = VARO_HDR_MAX_WIDTH;
constexpr int kMaxH = VARO_HDR_MAX_HEIGHT;
constexpr int kAlign = 64;
constexpr size_t kSlack = 80;

size_t round8(size_t v) { return v & ~(size_t)7; }

// Raw malloc results of one creation, so that a failed creation can give
// everything back.  1 context + 18 bitmaps + 33 weights + 6 gaussians +
// 33 bands + 30 chroma bands + 3 + 3 scratch planes.
struct Allocations {
    void *raw[128];
    int count = 0;

    uint8_t *take(size_t bytes) {
        void *p = malloc(bytes);
        if (!p) return nullptr;
        raw[count++] = p;
        return pool_align(p, kAlign);
    }
    // Everything but the context block itself (always the first).
    void release_buffers() {
        while (count > 1) free(raw[--count]);
    }
};

int fail(Allocations &a, HdrContext *ctx) {
    // The buffers are returned and the record keeps null pointers only, so a
    // host may still pass it to hdrDestroyContext (which then frees just it).
    a.release_buffers();
    memset(ctx, 0, sizeof(*ctx));
    HDR_LOG_AS("hdrCreateContext", "[%s:%d] end ... ", "hdrCreateContext", __LINE__);
    return VARO_HDR_ERR_NOMEM;
}

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

extern "C" VARO_HDR_API int hdrCreateContext(HdrContext **out) {
    HDR_LOG_BEGIN();
    Allocations a;

    uint8_t *block = a.take(sizeof(HdrContext) + 128);
    if (!block) {
        puts("hrd_creat malloc failed 0");
        HDR_LOG_END();
        return VARO_HDR_ERR_NOMEM;
    }
    HdrContext *ctx = (HdrContext *)block;
    memset(ctx, 0, sizeof(*ctx));
    *out = ctx;

    for (int f = 2; f >= 0; --f) {
        for (int l = VARO_HDR_BITMAP_LEVELS - 1; l >= 0; --l) {
            HdrBitmapLevel &lv = ctx->bitmap_pyramid[f][l];
            size_t s = pool_bitmap_bytes(l);
            lv.buffer_bytes = (uint32_t)(s + 16);
            lv.buffer = a.take(s + kSlack);
            if (!lv.buffer) {
                puts("hrd_creat malloc failed 3");
                return fail(a, ctx);
            }
        }
    }

    for (int f = 0; f < 3; ++f) {
        for (int l = 0; l < VARO_HDR_MAX_LEVELS; ++l) {
            uint8_t *p = a.take(pool_weight_bytes(l));
            if (!p) {
                printf("malloc w_gaussian_pyramid [%d, %d] failed\n", f, l);
                return fail(a, ctx);
            }
            ctx->w_gaussian_pyramid[f][l] = p + 16;
        }
    }

    for (int f = 0; f < 3; ++f) {
        uint8_t *g0 = a.take(POOL_GAUSS0_BYTES);
        if (!g0) {
            puts("malloc img_gaussian_pyramid 0 failed");
            return fail(a, ctx);
        }
        uint8_t *g1 = a.take(POOL_GAUSS1_BYTES);
        if (!g1) {
            puts("malloc img_gaussian_pyramid 1 failed");
            return fail(a, ctx);
        }
        ctx->img_gaussian_pyramid[f][0] = g0 + 16;
        ctx->img_gaussian_pyramid[f][1] = g1 + 16;
    }

    for (int f = 0; f < 3; ++f) {
        for (int l = 0; l < VARO_HDR_MAX_LEVELS; ++l) {
            uint8_t *p = a.take(pool_band_bytes(l));
            if (!p) {
                printf("malloc img_laplacian_pyramid [%d, %d, IY] failed\n", f, l);
                return fail(a, ctx);
            }
            ctx->img_laplacian_pyramid[f][l].IY = (int16_t *)(p + 32);
        }
    }

    for (int f = 0; f < 3; ++f) {
        for (int k = 0; k < VARO_HDR_MAX_LEVELS - 1; ++k) {
            uint8_t *p = a.take(pool_chroma_band_bytes(k));
            if (!p) {
                printf("malloc img_laplacian_pyramid [%d, %d, IC] failed\n", f, k);
                return fail(a, ctx);
            }
            ctx->img_laplacian_pyramid[f][k].IC = (int16_t *)(p + 32);
        }
    }

    for (int f = 0; f < 3; ++f) {
        uint8_t *p = a.take(POOL_FRAME16_BYTES);
        if (!p) {
            puts("malloc inter_buf failed");
            return fail(a, ctx);
        }
        ctx->inter_buf[f] = (int16_t *)p;
    }

    for (int f = 0; f < 3; ++f) {
        uint8_t *p = a.take(POOL_FRAME16_BYTES);
        if (!p) {
            puts("hrd_creat malloc failed 9");
            return fail(a, ctx);
        }
        ctx->motion_mask[f] = p;
    }

    handoff_create_groups(ctx);
    HDR_LOG_END();
    return VARO_HDR_OK;
}

// Frees a block stored `inner` bytes past its aligned start; tolerates null
// so that the record left by a failed creation can be destroyed too.
static void free_inner(void *p, size_t inner) {
    if (p) free(pool_unalign((uint8_t *)p - inner));
}

extern "C" VARO_HDR_API int hdrDestroyContext(HdrContext *ctx) {
    if (!ctx) return VARO_HDR_OK;
    // A failed creation leaves an all-zero record whose groups were never set up.
    if (ctx->motion_mask[HE_IDX]) handoff_destroy_groups(ctx);
    for (int f = 2; f >= 0; --f)
        for (int l = VARO_HDR_BITMAP_LEVELS - 1; l >= 0; --l) free_inner(ctx->bitmap_pyramid[f][l].buffer, 0);
    for (int f = 0; f < 3; ++f)
        for (int l = 0; l < VARO_HDR_MAX_LEVELS; ++l) free_inner(ctx->w_gaussian_pyramid[f][l], 16);
    for (int f = 0; f < 3; ++f) {
        free_inner(ctx->img_gaussian_pyramid[f][0], 16);
        free_inner(ctx->img_gaussian_pyramid[f][1], 16);
    }
    for (int f = 0; f < 3; ++f)
        for (int l = 0; l < VARO_HDR_MAX_LEVELS; ++l) free_inner(ctx->img_laplacian_pyramid[f][l].IY, 32);
    for (int f = 0; f < 3; ++f)
        for (int k = 0; k < VARO_HDR_MAX_LEVELS - 1; ++k) free_inner(ctx->img_laplacian_pyramid[f][k].IC, 32);
    for (int f = 0; f < 3; ++f) free_inner(ctx->inter_buf[f], 0);
    for (int f = 0; f < 3; ++f) free_inner(ctx->motion_mask[f], 0);
    free_inner(ctx, 0);
    HDR_LOG_END();
    return VARO_HDR_OK;
}
