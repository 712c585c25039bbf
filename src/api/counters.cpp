#include "varo_hdr.h"

#define COUNTER_TRIPLE(n)                  \
    VARO_HDR_API int64_t start_time_##n;   \
    VARO_HDR_API int64_t end_time_##n;     \
    VARO_HDR_API int64_t total_time_##n;
COUNTER_TRIPLE(1)
COUNTER_TRIPLE(2)
COUNTER_TRIPLE(3)
COUNTER_TRIPLE(4)
COUNTER_TRIPLE(5)
COUNTER_TRIPLE(6)
COUNTER_TRIPLE(7)
COUNTER_TRIPLE(8)
