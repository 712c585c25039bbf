/*
 * varo_hdr: three-exposure HDR merge for 8-bit YUV 4:2:0 semi-planar frames.
 *
 * Lifetime: hdrCreateContext() once, any number of hdrThreeFrameCore() calls
 * one at a time per context, hdrDestroyContext().  All image memory is taken at
 * creation for frames up to VARO_HDR_MAX_WIDTH x VARO_HDR_MAX_HEIGHT.
 *
 * Usable from C and C++.  Every exported symbol is declared here.
 */
#ifndef VARO_HDR_H
#define VARO_HDR_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#if defined(VARO_HDR_BUILDING) && defined(__GNUC__)
#define VARO_HDR_API __attribute__((visibility("default")))
#else
#define VARO_HDR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Frame indices, used for every per-frame array. */
enum { HE_IDX = 0, LE_IDX = 1, AE_IDX = 2 };

/* Library version; hdrGetVersion() gives the one actually loaded. */
#define VARO_HDR_VERSION_MAJOR 0
#define VARO_HDR_VERSION_MINOR 2
#define VARO_HDR_VERSION_PATCH 0
#define VARO_HDR_VERSION_STRING "0.2.0"
#define VARO_HDR_VERSION_NUMBER \
    (VARO_HDR_VERSION_MAJOR * 10000 + VARO_HDR_VERSION_MINOR * 100 + VARO_HDR_VERSION_PATCH)

#define VARO_HDR_MAX_WIDTH 4160
#define VARO_HDR_MAX_HEIGHT 3120
#define VARO_HDR_MAX_LEVELS 11
#define VARO_HDR_BITMAP_LEVELS 6

/* Return codes of the entry points. */
#define VARO_HDR_OK 0
#define VARO_HDR_NO_HDR_NEEDED (-1)
#define VARO_HDR_ERR_NOMEM (-2)
/* Rejected descriptor: null context/descriptor/plane, or a size that is not
 * positive, not even, or beyond the capacity.  Nothing is started or written. */
#define VARO_HDR_ERR_INVALID (-3)
/* A worker thread could not be created; nothing was written. */
#define VARO_HDR_ERR_THREAD (-4)

/* ---------------------------------------------------------------- input -- */

typedef struct HdrFrame {
    uint8_t *luma;        /* height rows of width bytes; receives output luma (HE) */
    uint8_t *chroma;      /* height/2 rows of width bytes, interleaved pairs */
    uint32_t reserved[3]; /* not read; the AE frame's reserved words hold exposure[] */
} HdrFrame;

typedef struct HdrExposure {
    float exposure_scale;    /* exposure = exposure_scale * exposure_units (float) */
    uint32_t exposure_units;
} HdrExposure;

/*
 * Host descriptor.  On 32-bit Arm every field sits in its fixed 32-bit word,
 * words numbered from 1 as in the reserved fields' names (frame[HE].luma
 * word 1, exposure[] words 13..18, width 24, height 25, out_x..out_height
 * 57..60); 64-bit targets keep the same order with pointers widened.  The AE frame slot has no reserved tail: exposure[] follows its
 * chroma pointer directly, which the union expresses.
 */
typedef struct HdrInput {
    __extension__ union {
        HdrFrame frame[3];
        __extension__ struct {
            unsigned char frames_before_exposure_[2 * sizeof(HdrFrame) + 2 * sizeof(uint8_t *)];
            HdrExposure exposure[3];
        };
    };
    uint32_t reserved_19_23[5];
    int32_t width;  /* pixels; also the row pitch of both planes */
    int32_t height;
    uint32_t reserved_26_56[31];
    int32_t out_x; /* written: valid output rectangle */
    int32_t out_y;
    int32_t out_width;
    int32_t out_height;
} HdrInput;

/* -------------------------------------------------------------- context -- */

/* One level of a registration bitmap pyramid: word pairs (threshold, exclusion). */
typedef struct HdrBitmapLevel {
    uint32_t width_words;  /* word pairs per row: (level width >> 5) + 1 */
    uint32_t rows;         /* crop height >> level */
    uint32_t stride_words; /* width_words + 4 */
    uint32_t buffer_bytes; /* whole buffer, margins included */
    uint32_t *bits;        /* first pair of row 0 */
    uint8_t *buffer;       /* start of the level buffer */
} HdrBitmapLevel;

typedef struct HdrPlanes {
    uint8_t *luma;
    uint8_t *chroma;
} HdrPlanes;

typedef struct HdrLaplacianLevel {
    int16_t *IY; /* luma band, pitch row_stride[l] elements */
    int16_t *IC; /* chroma band, pitch chroma_stride[l] elements (null at level 10) */
} HdrLaplacianLevel;

typedef struct HdrOffset {
    int32_t x;
    int32_t y;
} HdrOffset;

/* A hand-off group between the calling thread and the two workers. */
typedef struct HdrHandoff {
    __extension__ union { int32_t start; int32_t go; };
    __extension__ union { int32_t le_done; int32_t done; };
    int32_t he_done;
    pthread_mutex_t mutex;
    __extension__ union { pthread_cond_t cond_start; pthread_cond_t cond_go; };
    pthread_cond_t cond_done;
} HdrHandoff;

typedef struct HdrContext {
    HdrInput *input;
    HdrBitmapLevel bitmap_pyramid[3][VARO_HDR_BITMAP_LEVELS];
    uint8_t *motion_mask[3];
    int32_t width;  /* working (overlap) size of the current call */
    int32_t height;
    HdrPlanes aligned[3]; /* each frame's planes at its crop origin: aligned[f].luma / .chroma */
    int32_t levels;
    uint8_t *w_gaussian_pyramid[3][VARO_HDR_MAX_LEVELS];
    int32_t row_stride[VARO_HDR_MAX_LEVELS];
    int32_t chroma_stride[VARO_HDR_MAX_LEVELS];
    HdrLaplacianLevel img_laplacian_pyramid[3][VARO_HDR_MAX_LEVELS];
    uint8_t *img_gaussian_pyramid[3][2];
    int16_t *inter_buf[3];
    int32_t min_err_bits_le;
    int32_t min_err_bits_he;
    int32_t le_flag;
    int32_t he_flag;
    int32_t reg_mode; /* 0 both side frames, 1 HE skipped, 2 LE skipped */
    int32_t fusion_skip;
    uint8_t *out_luma;
    uint8_t *out_chroma;
    HdrOffset he_offset;
    HdrOffset le_offset;
    HdrHandoff sync_bitmap;
    HdrHandoff sync_offset;
    HdrHandoff sync_motion;
    HdrHandoff sync_weight;
    HdrHandoff sync_pyramid;
    HdrHandoff sync_chroma;
    pthread_t thread[2];
} HdrContext;

/* -------------------------------------------------------- merge status -- */

/* What the last hdrThreeFrameCore() call on a context did. */
typedef enum HdrMergeOutcome {
    HDR_OUTCOME_NONE = 0,          /* no call yet on this context */
    HDR_OUTCOME_MERGED = 1,        /* fused; no side frame needed ghost masks */
    HDR_OUTCOME_MERGED_GHOST = 2,  /* fused with motion masks on LE and/or HE */
    HDR_OUTCOME_FALLBACK = 3,      /* the AE frame was copied out; see HdrFallbackReason */
    HDR_OUTCOME_NO_HDR_NEEDED = 4, /* returned VARO_HDR_NO_HDR_NEEDED, nothing written */
    HDR_OUTCOME_REJECTED = 5       /* returned an error code, nothing written */
} HdrMergeOutcome;

typedef enum HdrFallbackReason {
    HDR_FALLBACK_NONE = 0,
    HDR_FALLBACK_REGISTRATION = 1, /* an offset reached the search limit of 63 */
    HDR_FALLBACK_GHOSTING = 2,     /* the motion masks vetoed the fusion */
    HDR_FALLBACK_OVERLAP = 3       /* the registered overlap is smaller than 8 x 4 */
} HdrFallbackReason;

typedef struct HdrMergeStatus {
    /* In: sizeof(HdrMergeStatus) as the caller was built with; out: the bytes
     * filled.  A record from an older, shorter header is filled only as far
     * as it reaches, so fields are only ever added at the end. */
    uint32_t struct_size;
    int32_t result;       /* what hdrThreeFrameCore returned */
    int32_t outcome;      /* HdrMergeOutcome */
    int32_t reason;       /* HdrFallbackReason, HDR_FALLBACK_NONE unless outcome is FALLBACK */
    int32_t registered;   /* 1 once both offsets below are this call's */
    HdrOffset le_offset;  /* shift of LE against AE */
    HdrOffset he_offset;  /* shift of HE against AE */
    uint32_t le_error_bits;   /* registration error count of each side frame */
    uint32_t he_error_bits;
    uint32_t ghost_threshold; /* error count above which a side frame gets a motion mask */
    int32_t le_flag;      /* motion flags: the side frame's error exceeded the threshold */
    int32_t he_flag;
    int32_t width;        /* working (overlap) size and pyramid levels; 0 on a fallback */
    int32_t height;       /* decided before the overlap was sized */
    int32_t levels;
    int32_t out_x;        /* the output rectangle written into the descriptor */
    int32_t out_y;
    int32_t out_width;
    int32_t out_height;
    /* 1 when that offset search could not get its scratch block: its offset
     * is the previous call's on this context and its error count 0. */
    int32_t le_offset_reused;
    int32_t he_offset_reused;
    /* This call's stage times in microseconds, measured on this context
     * (unlike the process-wide start/end/total_time_N counters). */
    int64_t registration_us; /* bitmaps, offset searches, shift check */
    int64_t motion_us;       /* mask reset and motion mask or plain copy */
    int64_t fusion_us;       /* fusion, or the reference copy */
    int64_t weights_us;      /* part of fusion_us: the three weight maps */
    int64_t total_us;        /* the whole call */
} HdrMergeStatus;

/* --------------------------------------------------------- entry points -- */

VARO_HDR_API int hdrCreateContext(HdrContext **out);
VARO_HDR_API int hdrDestroyContext(HdrContext *ctx);
/*
 * One merge, synchronous, strictly one call at a time per context.  Writes the
 * merged picture over frame[HE_IDX] (pitch = width) and the valid rectangle
 * into out_x..out_height; when the frames cannot be registered, ghosting is too
 * strong, or the overlap is smaller than 8 x 4, the AE frame is copied there
 * instead (rectangle 0, 0, width, height).  Returns 0, or VARO_HDR_ERR_INVALID
 * (nothing started or written) for a null context, descriptor or plane, or a
 * width/height that is not positive, not even, or beyond the capacity, or
 * VARO_HDR_ERR_THREAD.  Each frame's planes must stay readable for up to
 * 126 rows x width + 126 bytes past the end of its luma plane (as they are when
 * chroma follows luma in one buffer): registered rows are copied at full width
 * from their crop origin.
 */
VARO_HDR_API int hdrThreeFrameCore(HdrContext *ctx, HdrInput *in);
VARO_HDR_API int hdrAbortProcessing(void);

/* Copies the last call's status on ctx into *out (safe from another thread
 * only between calls).  Set out->struct_size first.  Returns 0, or
 * VARO_HDR_ERR_INVALID for a null argument or a struct_size below 8.  A context
 * that has not merged yet reports HDR_OUTCOME_NONE. */
VARO_HDR_API int hdrGetMergeStatus(const HdrContext *ctx, HdrMergeStatus *out);
/* Readable names for an outcome and a reason ("merged", "registration failed", ...). */
VARO_HDR_API const char *hdrOutcomeName(int outcome);
VARO_HDR_API const char *hdrFallbackReasonName(int reason);
/* The loaded library's VARO_HDR_VERSION_STRING and VARO_HDR_VERSION_NUMBER. */
VARO_HDR_API const char *hdrGetVersion(void);
VARO_HDR_API int hdrGetVersionNumber(void);

VARO_HDR_API void *align_malloc(size_t size, size_t alignment);
VARO_HDR_API void align_free(void *p);

/* ------------------------------------------------------ stage functions -- */

VARO_HDR_API int BitmapCalc(const uint8_t *luma, uint32_t width, uint32_t height,
                            HdrBitmapLevel *pyramid);
VARO_HDR_API uint32_t OffsetCalc(const HdrBitmapLevel *fixed_pyramid,
                                 const HdrBitmapLevel *moving_pyramid, HdrOffset *offset_out);
VARO_HDR_API int ImageRegistration(HdrContext *ctx, HdrInput *in, int32_t crop_origins[6]);
VARO_HDR_API int MotionMask(HdrContext *ctx, HdrInput *in);
VARO_HDR_API void ImgMaskCalcAL(HdrContext *ctx, uint8_t *mask, int32_t source_stride,
                                int32_t threshold);
VARO_HDR_API int ExposureFusion(HdrContext *ctx, HdrInput *in);
VARO_HDR_API void WeightWellExposed(HdrContext *ctx, int32_t frame_index);
VARO_HDR_API void WeightNormalize(uint8_t *const weight_maps[3][VARO_HDR_MAX_LEVELS],
                                  int32_t width, int32_t height, int32_t stride);
VARO_HDR_API void WeightGaussPyramid(uint8_t *const *level_buffers, int16_t *inter_buf,
                                     int32_t width, int32_t height, const int32_t *row_stride,
                                     int32_t level_count);
VARO_HDR_API void ImageLaplacianPyramid(HdrContext *ctx, int32_t level_count, int32_t frame);
VARO_HDR_API void ImageReconstruct(HdrContext *ctx, int32_t level_count);
VARO_HDR_API void ImageLaplacianPyramidChroma(HdrContext *ctx, int32_t src_pitch,
                                              int32_t chroma_level_arg, int32_t frame);
VARO_HDR_API void ImageReconstructChroma(HdrContext *ctx, int32_t chroma_level_arg);
VARO_HDR_API void ImageNormalize(HdrContext *ctx, uint8_t *out_luma, uint8_t *out_chroma,
                                 int32_t out_pitch);
VARO_HDR_API void *FusionThreadFunc0(void *ctx);
VARO_HDR_API void *FusionThreadFunc1(void *ctx);

/* ------------------------------------------------------- exported tables -- */

VARO_HDR_API extern const int32_t bits_num[256];
VARO_HDR_API extern const int16_t csf_tab[256];
VARO_HDR_API extern const uint8_t inv_csf_tab[1624];
VARO_HDR_API extern const uint8_t well_expose[768];
VARO_HDR_API extern const uint16_t weight_int_tab[768];
VARO_HDR_API extern const uint8_t tmap_tab_low1[64];
VARO_HDR_API extern const uint8_t tmap_tab_low2[128];
VARO_HDR_API extern const uint8_t tmap_tab_low3[192];
VARO_HDR_API extern const uint8_t tmap_tab_low4[256];
VARO_HDR_API extern const uint8_t tmap_tab_high1[64];
VARO_HDR_API extern const uint8_t tmap_tab_high2[128];
VARO_HDR_API extern const uint8_t tmap_tab_high3[192];
VARO_HDR_API extern const uint8_t tmap_tab_high4[256];

/* --------------------------------------------------- profiling counters -- */
/* Milliseconds from gettimeofday; stages 1 (registration), 4 (motion),
 * 5 (fusion) and 6 (weights) are measured, the others stay 0. */

#define VARO_HDR_COUNTER_TRIPLE(n)                 \
    VARO_HDR_API extern int64_t start_time_##n;    \
    VARO_HDR_API extern int64_t end_time_##n;      \
    VARO_HDR_API extern int64_t total_time_##n;
VARO_HDR_COUNTER_TRIPLE(1)
VARO_HDR_COUNTER_TRIPLE(2)
VARO_HDR_COUNTER_TRIPLE(3)
VARO_HDR_COUNTER_TRIPLE(4)
VARO_HDR_COUNTER_TRIPLE(5)
VARO_HDR_COUNTER_TRIPLE(6)
VARO_HDR_COUNTER_TRIPLE(7)
VARO_HDR_COUNTER_TRIPLE(8)
#undef VARO_HDR_COUNTER_TRIPLE

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VARO_HDR_H */
