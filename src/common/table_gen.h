// Builds the initialiser of an exported table from a constexpr rule g(i), so
// that a table is defined by its rule rather than by stored data.
#pragma once

#define TABLE_GEN4(g, i) g(i), g((i) + 1), g((i) + 2), g((i) + 3)
#define TABLE_GEN16(g, i) TABLE_GEN4(g, i), TABLE_GEN4(g, (i) + 4), TABLE_GEN4(g, (i) + 8), TABLE_GEN4(g, (i) + 12)
#define TABLE_GEN64(g, i) \
    TABLE_GEN16(g, i), TABLE_GEN16(g, (i) + 16), TABLE_GEN16(g, (i) + 32), TABLE_GEN16(g, (i) + 48)
#define TABLE_GEN256(g, i) \
    TABLE_GEN64(g, i), TABLE_GEN64(g, (i) + 64), TABLE_GEN64(g, (i) + 128), TABLE_GEN64(g, (i) + 192)
