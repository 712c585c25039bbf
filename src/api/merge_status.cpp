// The merge status and version entry points.
#include "pipeline/merge_state.h"

#include <string.h>

extern "C" VARO_HDR_API int hdrGetMergeStatus(const HdrContext *ctx, HdrMergeStatus *out) {
    if (!ctx || !out || out->struct_size < 8) return VARO_HDR_ERR_INVALID;
    HdrMergeStatus s = merge_state(ctx)->status;
    s.struct_size = out->struct_size < sizeof s ? out->struct_size : (uint32_t)sizeof s;
    memcpy(out, &s, s.struct_size);
    return VARO_HDR_OK;
}

extern "C" VARO_HDR_API const char *hdrOutcomeName(int outcome) {
    switch (outcome) {
    case HDR_OUTCOME_NONE: return "none";
    case HDR_OUTCOME_MERGED: return "merged";
    case HDR_OUTCOME_MERGED_GHOST: return "merged with ghost masks";
    case HDR_OUTCOME_FALLBACK: return "fallback";
    case HDR_OUTCOME_NO_HDR_NEEDED: return "no HDR needed";
    case HDR_OUTCOME_REJECTED: return "rejected";
    default: return "unknown";
    }
}

extern "C" VARO_HDR_API const char *hdrFallbackReasonName(int reason) {
    switch (reason) {
    case HDR_FALLBACK_NONE: return "";
    case HDR_FALLBACK_REGISTRATION: return "registration failed";
    case HDR_FALLBACK_GHOSTING: return "ghosting too strong";
    case HDR_FALLBACK_OVERLAP: return "overlap too small";
    default: return "unknown";
    }
}

extern "C" VARO_HDR_API const char *hdrGetVersion(void) { return VARO_HDR_VERSION_STRING; }
extern "C" VARO_HDR_API int hdrGetVersionNumber(void) { return VARO_HDR_VERSION_NUMBER; }
