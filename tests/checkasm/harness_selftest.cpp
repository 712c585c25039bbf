// The harness's own guards must catch a write past a buffer and a difference.
#include "checkasm/checkasm.h"
#include <stdio.h>

CHECKASM_TEST(harness) {
    CheckasmBuf a, b;
    a.alloc(32, 100, 32);
    b.copy_from(a);
    bool same = checkasm_compare_blocks("selftest", a, b, 10, 1) && a.canaries_intact("selftest");
    b.data()[100] ^= 1; // one byte past the payload
    bool caught = !b.canaries_intact(nullptr);
    if (!same || !caught) {
        printf("checkasm self-test failed: same=%d caught=%d\n", same, caught);
        checkasm_fail("harness self-test");
    }
}
