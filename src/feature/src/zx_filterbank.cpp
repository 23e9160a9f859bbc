// SPDX-License-Identifier: Apache-2.0
#include "zx_filterbank.h"

#include <memory>

#include "zx_assert.h"
#include "zx_heap.h"
#include "zx_kernels.h"
#include "zx_math.h"

namespace {

// 1 / (width of a slope in bins): what a band's weight changes by from bin to bin.
template <size_t first_edge>
constexpr std::array<float, ZX_FILTERBANK_NUM_BANDS> make_slopes() {
    std::array<float, ZX_FILTERBANK_NUM_BANDS> slopes{};
    for (size_t b = 0; b < slopes.size(); b++) {
        slopes[b] = 1.0f / static_cast<float>(FILTERBANK_BAND_EDGES[b + first_edge + 1] -
                                              FILTERBANK_BAND_EDGES[b + first_edge]);
    }
    return slopes;
}

constexpr auto FILTERBANK_RISING_SLOPES = make_slopes<0>();
constexpr auto FILTERBANK_FALLING_SLOPES = make_slopes<1>();
static_assert(FILTERBANK_RISING_SLOPES[0] == 1.0f && FILTERBANK_RISING_SLOPES[1] == 0.5f);
static_assert(FILTERBANK_FALLING_SLOPES[39] == 1.0f / 17.0f);
static_assert(FILTERBANK_BAND_EDGES.back() == ZX_FFT_NUM_BINS);

}  // namespace

zx_status_t zx_filterbank_init(zx_memory_t *memory, int32_t window_shift, zx_filterbank_t **object) {
    ZX_ASSERT(memory);
    ZX_ASSERT(window_shift > 0);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_filterbank_t, zx_filterbank_delete> o(zx_memory_zeroed<zx_filterbank_t>(memory));
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->memory = memory;
    o->window_shift = window_shift;
    const zx_status_t status = zx_stft_init(memory, window_shift, &o->stft);
    if (status != ZX_STATUS_SUCCESS) return status;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_filterbank_delete(zx_filterbank_t *object) {
    if (!object) return;
    zx_stft_delete(object->stft);
    zx_memory_free(object->memory, object);
}

zx_status_t zx_filterbank_compute(zx_filterbank_t *object, const int16_t *pcm, int16_t *y) {
    ZX_ASSERT(object);
    ZX_ASSERT(pcm);
    ZX_ASSERT(y);
    const size_t shift = static_cast<size_t>(object->window_shift);
    const auto emphasised = zx_scratch_allocate<float>(object->memory, shift, zx_fill::none);
    const auto power = zx_scratch_allocate<float>(object->memory, ZX_FFT_NUM_BINS, zx_fill::none);
    if (!emphasised || !power) return ZX_STATUS_OUT_OF_MEMORY;
    zx_filterbank_preprocess(object, pcm, emphasised.get());
    const zx_status_t status =
        zx_stft_forward_float_to_magnitude(object->stft, emphasised.get(), power.get());
    if (status != ZX_STATUS_SUCCESS) return status;
    zx_filterbank_postprocess(power.get(), y);
    return ZX_STATUS_SUCCESS;
}

void zx_filterbank_reset(zx_filterbank_t *object) {
    object->preemphasis_sample = 0;
    zx_stft_reset(object->stft);
}

void zx_filterbank_preprocess(zx_filterbank_t *object, const int16_t *pcm, float *emphasised) {
    zx_kernels()->loops->preemphasize(object->window_shift, object->preemphasis_sample, pcm, emphasised);
    object->preemphasis_sample = pcm[object->window_shift - 1];
}

void zx_filterbank_postprocess(const float *power, int16_t *y) {
    constexpr float TWO_TO_33 = 8589934592.0f;  // zx_log10 divides by 2^63: what remains is energy / 2^30
    float energies[ZX_FILTERBANK_NUM_BANDS];
    zx_kernels()->loops->weigh_bands(ZX_FILTERBANK_NUM_BANDS, FILTERBANK_BAND_EDGES.data(),
                                     FILTERBANK_RISING_SLOPES.data(), FILTERBANK_FALLING_SLOPES.data(), power,
                                     energies);
    for (int32_t b = 0; b < ZX_FILTERBANK_NUM_BANDS; b++)
        y[b] = zx_log10(zx_float_to_int64(energies[b] * TWO_TO_33));
}

int64_t zx_float_to_int64(float x) {
    constexpr float TWO_TO_63 = 9223372036854775808.0f;
    if (x >= TWO_TO_63) return INT64_MAX;
    if (x <= -TWO_TO_63) return INT64_MIN;
    return static_cast<int64_t>(x);
}
