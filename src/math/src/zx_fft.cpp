// SPDX-License-Identifier: Apache-2.0
#include "zx_fft.h"

#include <array>

#include "zx_assert.h"
#include "zx_fft_tables.h"
#include "zx_kernels.h"
#include "zx_math.h"

namespace {

constexpr int32_t NUM_COMPLEX = ZX_FFT_LENGTH / 2;
constexpr int32_t QUARTER_PERIOD = ZX_FFT_LENGTH / 4;

// Entry n: offset in floats of the complex slot whose index is n with its 8 bits reversed.
constexpr std::array<int16_t, NUM_COMPLEX> make_bit_reversal_table() {
    std::array<int16_t, NUM_COMPLEX> table{};
    for (int32_t n = 0; n < NUM_COMPLEX; n++) {
        int32_t reversed = 0;
        for (int32_t bit = 0; bit < 8; bit++) reversed |= ((n >> bit) & 1) << (7 - bit);
        table[static_cast<size_t>(n)] = static_cast<int16_t>(2 * reversed);
    }
    return table;
}

constexpr std::array<int16_t, NUM_COMPLEX> BIT_REVERSAL_TABLE = make_bit_reversal_table();
static_assert(BIT_REVERSAL_TABLE[1] == 256 && BIT_REVERSAL_TABLE[8] == 32 && BIT_REVERSAL_TABLE[9] == 288);

}  // namespace

zx_status_t zx_fft_init(zx_memory_t *memory, zx_fft_t **object) {
    ZX_ASSERT(memory);
    ZX_ASSERT(object);
    *object = zx_memory_zeroed<zx_fft_t>(memory);
    if (!*object) return ZX_STATUS_OUT_OF_MEMORY;
    (*object)->memory = memory;
    return ZX_STATUS_SUCCESS;
}

void zx_fft_delete(zx_fft_t *object) {
    if (object) zx_memory_free(object->memory, object);
}

float zx_fft_sin(int32_t k) {
    return SIN_TABLE[static_cast<size_t>(k)];
}

float zx_fft_cos(int32_t k) {
    return SIN_TABLE[static_cast<size_t>(k + QUARTER_PERIOD)];
}

zx_status_t zx_fft_forward(zx_fft_t *object, const float *x, float *y) {
    ZX_ASSERT(object);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    const auto buffer = zx_scratch_allocate<float>(object->memory, ZX_FFT_LENGTH, zx_fill::none);
    if (!buffer) return ZX_STATUS_OUT_OF_MEMORY;
    zx_fft_forward_preprocess(x, buffer.get());
    zx_fft_complex_DIT_RN(buffer.get(), -1.0f);
    zx_fft_forward_postprocess(buffer.get(), y);
    return ZX_STATUS_SUCCESS;
}

void zx_fft_forward_preprocess(const float *x, float *buffer) {
    for (int32_t n = 0; n < NUM_COMPLEX; n++) {
        float *slot = buffer + BIT_REVERSAL_TABLE[static_cast<size_t>(n)];
        slot[0] = x[2 * n];
        slot[1] = x[2 * n + 1];
    }
}

void zx_fft_complex_DIT_RN(float *buffer, float sign) {
    zx_kernels()->transform(buffer, sign);
}

void zx_fft_forward_postprocess(const float *buffer, float *y) {
    zx_kernels()->loops->separate_pairs(SIN_TABLE.data(), buffer, y);
}
