// SPDX-License-Identifier: Apache-2.0
#include "zx_stft.h"

#include <cstring>
#include <memory>

#include "zx_assert.h"
#include "zx_heap.h"
#include "zx_kernels.h"
#include "zx_stft_tables.h"

namespace {

size_t history_length(const zx_stft_t *object) {
    return object->window_shift < ZX_FFT_LENGTH ? static_cast<size_t>(ZX_FFT_LENGTH - object->window_shift)
                                                : 0;
}

}  // namespace

zx_status_t zx_stft_init(zx_memory_t *memory, int32_t window_shift, zx_stft_t **object) {
    ZX_ASSERT(memory);
    ZX_ASSERT(window_shift > 0);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_stft_t, zx_stft_delete> o(zx_memory_zeroed<zx_stft_t>(memory));
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->memory = memory;
    o->window_shift = window_shift;
    if (history_length(o.get()) > 0) {
        o->history = zx_memory_zeroed<float>(memory, history_length(o.get()));
        if (!o->history) return ZX_STATUS_OUT_OF_MEMORY;
    }
    const zx_status_t status = zx_fft_init(memory, &o->fft);
    if (status != ZX_STATUS_SUCCESS) return status;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_stft_delete(zx_stft_t *object) {
    if (!object) return;
    zx_fft_delete(object->fft);
    zx_memory_free(object->memory, object->history);
    zx_memory_free(object->memory, object);
}

zx_status_t zx_stft_forward_float_to_magnitude(zx_stft_t *object, const float *x, float *y) {
    const auto frame = zx_scratch_allocate<float>(object->memory, ZX_FFT_LENGTH, zx_fill::none);
    const auto spectrum = zx_scratch_allocate<float>(object->memory, 2 * ZX_FFT_NUM_BINS, zx_fill::none);
    if (!frame || !spectrum) return ZX_STATUS_OUT_OF_MEMORY;
    zx_stft_forward_preprocess_float(object, x, frame.get());
    const zx_status_t status = zx_fft_forward(object->fft, frame.get(), spectrum.get());
    if (status != ZX_STATUS_SUCCESS) return status;
    zx_stft_complex_to_magnitude(spectrum.get(), y);
    return ZX_STATUS_SUCCESS;
}

void zx_stft_reset(zx_stft_t *object) {
    if (object->history) std::memset(object->history, 0, history_length(object) * sizeof(float));
}

void zx_stft_forward_preprocess_float(zx_stft_t *object, const float *x, float *frame) {
    const size_t shift = static_cast<size_t>(object->window_shift);
    const size_t length = history_length(object);
    if (length > 0) {
        float *history = object->history;
        std::memcpy(frame, history, length * sizeof(float));
        std::memcpy(frame + length, x, shift * sizeof(float));
        if (length > shift) {
            std::memmove(history, history + shift, (length - shift) * sizeof(float));
            std::memcpy(history + length - shift, x, shift * sizeof(float));
        } else {
            std::memcpy(history, x + shift - length, length * sizeof(float));
        }
    }
    for (size_t i = 0; i < HALF_HANN_WINDOW.size(); i++) {
        frame[i] *= HALF_HANN_WINDOW[i];
        frame[ZX_FFT_LENGTH - 1 - i] *= HALF_HANN_WINDOW[i];
    }
}

void zx_stft_complex_to_magnitude(const float *spectrum, float *y) {
    zx_kernels()->loops->power(ZX_FFT_NUM_BINS, spectrum, y);
}
