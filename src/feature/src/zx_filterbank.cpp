#include "zx_filterbank.h"

#include <memory>

#include "zx_assert.h"
#include "zx_heap.h"
#include "zx_math.h"
#include "zx_multiversion.h"

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

ZX_MULTIVERSION
void zx_filterbank_preprocess(zx_filterbank_t *object, const int16_t *pcm, float *emphasised) {
    constexpr float COEFFICIENT = -0.97f;
    const int32_t shift = object->window_shift;
    emphasised[0] =
        zx_fma(COEFFICIENT, static_cast<float>(object->preemphasis_sample), static_cast<float>(pcm[0]));
    for (int32_t i = 1; i < shift; i++) {
        emphasised[i] = zx_fma(COEFFICIENT, static_cast<float>(pcm[i - 1]), static_cast<float>(pcm[i]));
    }
    object->preemphasis_sample = pcm[shift - 1];
}

ZX_MULTIVERSION
void zx_filterbank_postprocess(const float *power, int16_t *y) {
    constexpr float TWO_TO_33 = 8589934592.0f;  // zx_log10 divides by 2^63: what remains is energy / 2^30
    for (size_t b = 0; b < ZX_FILTERBANK_NUM_BANDS; b++) {
        // The weights are reached by repeated addition and subtraction: models are trained on their rounding.
        float energy = 0.0f;
        float weight = 0.0f;
        for (int32_t k = FILTERBANK_BAND_EDGES[b]; k < FILTERBANK_BAND_EDGES[b + 1]; k++) {
            energy = zx_fma(power[k], weight, energy);
            weight += FILTERBANK_RISING_SLOPES[b];
        }
        for (int32_t k = FILTERBANK_BAND_EDGES[b + 1]; k < FILTERBANK_BAND_EDGES[b + 2]; k++) {
            energy = zx_fma(power[k], weight, energy);
            weight -= FILTERBANK_FALLING_SLOPES[b];
        }
        y[b] = zx_log10(zx_float_to_int64(energy * TWO_TO_33));
    }
}

int64_t zx_float_to_int64(float x) {
    constexpr float TWO_TO_63 = 9223372036854775808.0f;
    if (x >= TWO_TO_63) return INT64_MAX;
    if (x <= -TWO_TO_63) return INT64_MIN;
    return static_cast<int64_t>(x);
}
