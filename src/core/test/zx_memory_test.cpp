// SPDX-License-Identifier: Apache-2.0
#include "zx_memory.h"

#include "support.h"

TEST(zx_memory, zeroed_blocks_are_zero) {
    zx_memory_t *memory = test_memory();
    auto *block = static_cast<unsigned char *>(zx_memory_allocate(memory, 1000, true));
    ASSERT_NE(block, nullptr);
    for (int i = 0; i < 1000; i++) ASSERT_EQ(block[i], 0);
    zx_memory_free(memory, block);
    zx_memory_free(memory, nullptr);
}

TEST(zx_memory, misuse_aborts) {
    zx_memory_t *memory = test_memory();
    int other;
    zx_memory_t *stranger = reinterpret_cast<zx_memory_t *>(&other);
    EXPECT_ASSERTION((void) zx_memory_init(nullptr), "object");
    EXPECT_ASSERTION((void) zx_memory_allocate(memory, 0, false), "n > 0");
    EXPECT_ASSERTION((void) zx_memory_allocate(stranger, 1, false), "object == (zx_memory_t *) 666");
    EXPECT_ASSERTION(zx_memory_free(stranger, nullptr), "object == (zx_memory_t *) 666");
    EXPECT_DEATH((void) zx_memory_allocate(memory, 0, false),
                 "zx_memory_allocate: zx_memory:\\w+: assertion");
}
