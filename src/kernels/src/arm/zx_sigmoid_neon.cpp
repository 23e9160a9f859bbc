// SPDX-License-Identifier: Apache-2.0
// Sigmoid and tanh by NEON: the lower and the upper bytes of the entries are looked up apart, in tables
// of four registers.
#include <arm_neon.h>

#include "zx_kernel_functions.h"
#include "zx_sigmoid.h"

namespace {

// The bytes of entries 0 .. 255 and of those after each.
struct entry_bytes {
    alignas(64) uint8_t low_entry_low[256], low_entry_high[256], high_entry_low[256], high_entry_high[256];
};

constexpr entry_bytes make_bytes() {
    entry_bytes bytes{};
    for (int32_t i = 0; i < 256; i++) {
        const int32_t low = ZX_SIGMOID_ENTRIES[i], high = ZX_SIGMOID_ENTRIES[i + 1];
        bytes.low_entry_low[i] = static_cast<uint8_t>(low & 255);
        bytes.low_entry_high[i] = static_cast<uint8_t>(low >> 8);
        bytes.high_entry_low[i] = static_cast<uint8_t>(high & 255);
        bytes.high_entry_high[i] = static_cast<uint8_t>(high >> 8);
    }
    return bytes;
}

constexpr entry_bytes BYTES = make_bytes();

constexpr int VECTORS = 2;  // of 16 values, which share the loads of the tables
constexpr int WIDTH = 16 * VECTORS;

inline void look_up(const uint8_t *table, const uint8x16_t (&index)[VECTORS], uint8x16_t (&bytes)[VECTORS]) {
    uint8x16_t rest[VECTORS];
    const uint8x16x4_t first = vld1q_u8_x4(table);
    for (int v = 0; v < VECTORS; v++) {
        rest[v] = index[v];
        bytes[v] = vqtbl4q_u8(first, rest[v]);  // 0 beyond the table, where the next ones put theirs
    }
    for (int quarter = 1; quarter < 4; quarter++) {
        const uint8x16x4_t entries = vld1q_u8_x4(table + 64 * quarter);
        for (int v = 0; v < VECTORS; v++) {
            rest[v] = vsubq_u8(rest[v], vdupq_n_u8(64));
            bytes[v] = vqtbx4q_u8(bytes[v], entries, rest[v]);
        }
    }
}

template <zx_sigmoid_form FORM>
void process_vectors(const int16_t *x, int16_t *y) {
    int16x8_t values[VECTORS][2];
    uint8x16_t index[VECTORS];
    for (int v = 0; v < VECTORS; v++) {
        for (int half = 0; half < 2; half++) {
            int16x8_t value = vld1q_s16(x + 16 * v + 8 * half);
            if (FORM == zx_sigmoid_form::tanh) value = vqaddq_s16(value, value);
            value = vmaxq_s16(vminq_s16(value, vdupq_n_s16(ZX_SIGMOID_MAX_INPUT)),
                              vdupq_n_s16(ZX_SIGMOID_MIN_INPUT));
            values[v][half] = value;
        }
        index[v] = vcombine_u8(vshrn_n_u16(vreinterpretq_u16_s16(values[v][0]), 6),
                               vshrn_n_u16(vreinterpretq_u16_s16(values[v][1]), 6));
    }
    uint8x16_t low_low[VECTORS], low_high[VECTORS], high_low[VECTORS], high_high[VECTORS];
    look_up(BYTES.low_entry_low, index, low_low);
    look_up(BYTES.low_entry_high, index, low_high);
    look_up(BYTES.high_entry_low, index, high_low);
    look_up(BYTES.high_entry_high, index, high_high);
    for (int v = 0; v < VECTORS; v++) {
        const int16x8_t low[2] = {vreinterpretq_s16_u8(vzip1q_u8(low_low[v], low_high[v])),
                                  vreinterpretq_s16_u8(vzip2q_u8(low_low[v], low_high[v]))};
        const int16x8_t high[2] = {vreinterpretq_s16_u8(vzip1q_u8(high_low[v], high_high[v])),
                                   vreinterpretq_s16_u8(vzip2q_u8(high_low[v], high_high[v]))};
        for (int half = 0; half < 2; half++) {
            // low + (f (high - low) >> 6) is the same, and neighbours differ by less than 2^9.
            const int16x8_t f = vandq_s16(values[v][half], vdupq_n_s16(63));
            const int16x8_t rise = vshrq_n_s16(vmulq_s16(f, vsubq_s16(high[half], low[half])), 6);
            int16x8_t result = vaddq_s16(low[half], rise);
            if (FORM == zx_sigmoid_form::tanh)
                result = veorq_s16(vshlq_n_s16(result, 1), vdupq_n_s16(INT16_MIN));
            vst1q_s16(y + 16 * v + 8 * half, result);
        }
    }
}

template <zx_sigmoid_form FORM>
void process(int32_t count, const int16_t *x, int16_t *y) {
    for (; count >= WIDTH; count -= WIDTH, x += WIDTH, y += WIDTH) process_vectors<FORM>(x, y);
    if (count == 0) return;
    int16_t last[WIDTH] = {};
    for (int32_t i = 0; i < count; i++) last[i] = x[i];
    process_vectors<FORM>(last, last);
    for (int32_t i = 0; i < count; i++) y[i] = last[i];
}

}  // namespace

void zx_sigmoid_neon(int32_t count, const int16_t *x, int16_t *y) {
    process<zx_sigmoid_form::sigmoid>(count, x, y);
}

void zx_tanh_neon(int32_t count, const int16_t *x, int16_t *y) {
    process<zx_sigmoid_form::tanh>(count, x, y);
}
