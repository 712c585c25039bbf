// Interposed malloc/free for the tests in this directory: counts the blocks
// the library requests while armed and can make the n-th request fail.
#pragma once
#include <stddef.h>

#include <vector>

struct AllocRecord {
    size_t size;
    void *ptr; // null for a failed request
};

// Starts recording; request number `fail_at` (0-based) returns null (-1: none).
void alloc_hook_arm(int fail_at = -1);
// Stops recording and returns the requests seen since alloc_hook_arm().
std::vector<AllocRecord> alloc_hook_disarm();
// Blocks recorded while armed that have not been freed since.
size_t alloc_hook_live();
