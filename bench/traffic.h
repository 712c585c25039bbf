// The memory traffic of one fused merge, pass by pass, as the merge is built
// today: every kernel call streams its whole source and destination planes
// once.  Divided by a measured streaming bandwidth it gives the time below
// which no schedule of these passes can go (the traffic floor).
#pragma once
#include <stdint.h>

#include <string>
#include <vector>

struct TrafficPass {
    std::string name;
    double read_bytes, write_bytes;
    // Of those, the bytes that the strip schedule keeps in cache: 16-bit
    // scratch rows written and read back within a strip, and rows a pass
    // reads right after the pass before it wrote or read them.  Still part
    // of the floor, which counts every pass as a whole-plane pass.
    double cached_bytes;
};

// Passes of a merge of an in_w x in_h input whose working (overlap) size is
// w x h; le_ghost / he_ghost: the motion-mask comparisons of that side frame
// ran (the context's le_flag / he_flag after the merge).
std::vector<TrafficPass> merge_traffic(int in_w, int in_h, int w, int h, bool le_ghost, bool he_ghost);
double traffic_total(const std::vector<TrafficPass> &passes);
double traffic_cached(const std::vector<TrafficPass> &passes);
