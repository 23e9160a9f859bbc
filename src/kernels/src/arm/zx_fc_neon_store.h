// SPDX-License-Identifier: Apache-2.0
// The end of a block of sums, for both variants of layers by NEON.
#ifndef ZX_FC_NEON_STORE_H
#define ZX_FC_NEON_STORE_H

#include <arm_neon.h>

#include <cstdint>

namespace {

// Rounds 16 sums to Q10, adds what y holds when accumulating, and saturates once.
inline void store_block(bool accumulate, const int32x4_t (&sums)[4], int16_t *y) {
    for (int quarter = 0; quarter < 4; quarter++, y += 4) {
        int32x4_t sum = vshrq_n_s32(sums[quarter], 7);
        if (accumulate) sum = vaddw_s16(sum, vld1_s16(y));
        vst1_s16(y, vqmovn_s32(sum));
    }
}

}  // namespace

#endif
