// SPDX-License-Identifier: Apache-2.0
// Sigmoid and tanh as their variants compute them: by the same integers, out of ZX_SIGMOID_TABLE. For a
// value x in Q10, clamped to [-8192, 8128], with f its low 6 bits and low and high the entries on both
// sides, the result is (low (64 - f) + high f) >> 6; tanh(v) = 2 sigmoid(2 v) - 1.
#ifndef ZX_SIGMOID_H
#define ZX_SIGMOID_H

#include <cstdint>

#include "zx_sigmoid_table.h"

inline constexpr int16_t ZX_SIGMOID_MIN_INPUT = -8192, ZX_SIGMOID_MAX_INPUT = 8128;  // -8 and 7.9375

enum class zx_sigmoid_form { sigmoid, tanh };

inline constexpr const int16_t *ZX_SIGMOID_ENTRIES = &ZX_SIGMOID_TABLE[0];

#endif
