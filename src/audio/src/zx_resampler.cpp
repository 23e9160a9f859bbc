// SPDX-License-Identifier: Apache-2.0
#include "zx_resampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "zx_assert.h"
#include "zx_heap.h"
#include "zx_kernels.h"
#include "zx_math.h"

namespace {

constexpr int32_t BLOCK_LENGTH =
    2048;  // samples that are filtered at once, history included when downsampling

int32_t zx_float_to_int32(float x) {
    if (x >= 2147483648.0f) return INT32_MAX;
    if (x <= -2147483648.0f) return INT32_MIN;
    return static_cast<int32_t>(x);
}

}  // namespace

void generate_kernel_filter(int32_t filter_order, float *filter_kernel, float ratio) {
    ZX_ASSERT(filter_order > 1);
    ZX_ASSERT(filter_kernel);
    constexpr double TWO_PI = 6.283185307179586;
    constexpr double FOUR_PI = 12.566370614359172;
    const float cutoff = ratio >= 1.0f ? 0.5f / ratio : 0.5f * ratio;
    const float gain = ratio >= 1.0f ? 1.0f : 1.0f / ratio;
    const int32_t num_taps = 2 * filter_order + 1;
    for (int32_t i = 0; i < num_taps; i++) {
        if (i == filter_order) {
            filter_kernel[i] = static_cast<float>(TWO_PI * cutoff);
            continue;
        }
        const float cosine1 = std::cos(static_cast<float>((TWO_PI * i) / (2 * filter_order)));
        const float cosine2 = std::cos(static_cast<float>((FOUR_PI * i) / (2 * filter_order)));
        const float window = zx_fma(0.08f, cosine2, zx_fma(-0.5f, cosine1, 0.42f));
        const int32_t t = i - filter_order;
        const float sine = std::sin(static_cast<float>((TWO_PI * cutoff) * t));
        filter_kernel[i] = sine / static_cast<float>(t) * window;
    }
    float sum = 0.0f;
    for (int32_t i = 0; i < num_taps; i++) sum += filter_kernel[i];
    const float divisor = sum / gain;
    for (int32_t i = 0; i < num_taps; i++) filter_kernel[i] /= divisor;
}

int32_t low_pass_filter(const int16_t *input_buffer, int32_t input_buffer_size, int16_t *output_buffer,
                        const float *filter_kernel, int32_t filter_order) {
    ZX_ASSERT(input_buffer);
    ZX_ASSERT(input_buffer_size > 0);
    ZX_ASSERT(output_buffer);
    ZX_ASSERT(filter_kernel);
    ZX_ASSERT(filter_order > 1);
    const int32_t num_outputs = input_buffer_size - 2 * filter_order;
    zx_kernels()->loops->filter(num_outputs, filter_order, input_buffer, filter_kernel, output_buffer);
    return num_outputs;
}

namespace {

// ---- Downsampler

struct downsampler_t {
    int32_t filter_order;
    float ratio;          // input rate / output rate, >= 1
    float *kernel;        // 2 N + 1 taps
    int32_t leftover;     // filtered samples of the last call that are not consumed yet
    int64_t last_index;   // of the filtered sample that was the right point of the last interpolation
    int64_t num_outputs;  // since the start
    int64_t offset;       // index of the first filtered sample still held
    int16_t *filtered;    // ceil(ratio + 1) + 2048 samples
    int16_t
        *history;  // 2 N + 2048 + ceil(ratio + 1) samples; the first 2 N + leftover are kept between calls
    int16_t previous_sample;  // the last right point, for a position before the held filtered samples
};

// Filtered samples that can be left over: an output further ahead than the block reaches.
size_t max_leftover(float ratio) {
    return ratio < BLOCK_LENGTH ? static_cast<size_t>(std::ceil(ratio + 1.0f)) : size_t{BLOCK_LENGTH};
}

size_t downsampler_history_size(const downsampler_t *o) {
    return 2 * static_cast<size_t>(o->filter_order) + BLOCK_LENGTH + max_leftover(o->ratio);
}

void downsampler_delete(void *object) {
    if (!object) return;
    downsampler_t *o = static_cast<downsampler_t *>(object);
    std::free(o->history);
    std::free(o->filtered);
    std::free(o->kernel);
    std::free(o);
}

void downsampler_reset(void *object) {
    downsampler_t *o = static_cast<downsampler_t *>(object);
    std::memset(o->history, 0, downsampler_history_size(o) * sizeof(int16_t));
    o->leftover = 0;
    o->last_index = -1;
    o->num_outputs = 0;
    o->offset = 0;
    o->previous_sample = 0;
}

zx_status_t downsampler_init(float ratio, int32_t filter_order, void **object) {
    ZX_ASSERT(filter_order > 1);
    ZX_ASSERT(object);
    if (ratio < 1.0f) return ZX_STATUS_INVALID_ARGUMENT;
    // A block must reach from one output to the next, or the leftovers would leave no room for input.
    if (2 * static_cast<size_t>(filter_order) + max_leftover(ratio) >= BLOCK_LENGTH)
        return ZX_STATUS_INVALID_ARGUMENT;
    zx_owned<downsampler_t, downsampler_delete> o(zx_heap_zeroed<downsampler_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->filter_order = filter_order;
    o->ratio = ratio;
    o->kernel = zx_heap_zeroed<float>(static_cast<size_t>(2 * filter_order + 1));
    o->filtered = zx_heap_zeroed<int16_t>(max_leftover(ratio) + BLOCK_LENGTH);
    o->history = zx_heap_zeroed<int16_t>(downsampler_history_size(o.get()));
    if (!o->kernel || !o->filtered || !o->history) return ZX_STATUS_OUT_OF_MEMORY;
    generate_kernel_filter(filter_order, o->kernel, ratio);
    downsampler_reset(o.get());
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

// Position of the next output relative to the held filtered samples.
float next_position(const downsampler_t *o) {
    return static_cast<float>(static_cast<double>(o->num_outputs) * o->ratio -
                              static_cast<double>(o->offset));
}

// Interpolates between the `num_filtered` samples held until the next output lies beyond them. Returns the
// number of outputs; *num_used receives the number of filtered samples up to the last right point.
int32_t interpolate(downsampler_t *o, int32_t num_filtered, int16_t *output, int32_t *num_used) {
    const int16_t *filtered = o->filtered;
    int32_t count = 0;
    *num_used = 0;
    for (float position = next_position(o); std::ceil(position) < static_cast<float>(num_filtered);
         position = next_position(o)) {
        const int32_t left_index = static_cast<int32_t>(std::floor(position));
        const int32_t right_index = zx_max_int32(static_cast<int32_t>(std::ceil(position)), 0);
        const int16_t left = left_index >= 0 ? filtered[left_index] : o->previous_sample;
        const int16_t right = filtered[right_index];
        const float fraction = position - static_cast<float>(left_index);
        output[count++] = static_cast<int16_t>(
            zx_fma(static_cast<float>(right - left), fraction, static_cast<float>(left)));
        o->num_outputs++;
        o->previous_sample = right;
        o->last_index = right_index + o->offset;
        *num_used = right_index + 1;
    }
    return count;
}

int32_t downsampler_process(void *object, const int16_t *input_buffer, int32_t input_buffer_size,
                            int16_t *output_buffer) {
    downsampler_t *o = static_cast<downsampler_t *>(object);
    if (o->ratio == 1.0f) {
        std::memcpy(output_buffer, input_buffer, static_cast<size_t>(input_buffer_size) * sizeof(int16_t));
        return input_buffer_size;
    }
    int32_t total = 0;
    while (input_buffer_size > 0) {
        const int32_t held = 2 * o->filter_order + o->leftover;
        const int32_t chunk = zx_min_int32(input_buffer_size, BLOCK_LENGTH - held);
        std::memcpy(o->history + held, input_buffer, static_cast<size_t>(chunk) * sizeof(int16_t));
        const int32_t num_filtered =
            low_pass_filter(o->history, held + chunk, o->filtered, o->kernel, o->filter_order);
        int32_t num_used;
        total += interpolate(o, num_filtered, output_buffer + total, &num_used);
        o->leftover = num_filtered - num_used;
        o->offset += num_used;
        const int32_t kept = 2 * o->filter_order + o->leftover;
        std::memmove(o->history, o->history + held + chunk - kept,
                     static_cast<size_t>(kept) * sizeof(int16_t));
        input_buffer += chunk;
        input_buffer_size -= chunk;
    }
    return total;
}

int32_t downsampler_to_output(const void *object, int32_t num_samples) {
    const downsampler_t *o = static_cast<const downsampler_t *>(object);
    const double num_filtered = static_cast<double>(o->last_index + num_samples + o->leftover);
    // In thousandths of the ratio: the order of the operations decides the last output near the end of a
    // file.
    const double outputs = std::floor(1000.0 * (num_filtered / static_cast<double>(o->ratio * 1000.0f)));
    return zx_int64_to_int32(static_cast<int64_t>(outputs) + 1 - o->num_outputs);
}

int32_t downsampler_to_input(const void *object, int32_t num_samples) {
    const downsampler_t *o = static_cast<const downsampler_t *>(object);
    const double last_position = static_cast<double>(o->num_outputs + num_samples - 1) * o->ratio;
    return zx_int64_to_int32(static_cast<int64_t>(std::ceil(last_position)) - (o->last_index + o->leftover));
}

// ---- Upsampler

struct upsampler_t {
    int32_t filter_order;
    float ratio;        // exactly 0.5
    float *kernel;      // 2 N + 1 taps
    int16_t *filtered;  // 2048 samples
    int16_t *history;   // 2 N + 2048 samples; the first 2 N are kept between calls
};

void upsampler_delete(void *object) {
    if (!object) return;
    upsampler_t *o = static_cast<upsampler_t *>(object);
    std::free(o->history);
    std::free(o->filtered);
    std::free(o->kernel);
    std::free(o);
}

size_t upsampler_history_size(const upsampler_t *o) {
    return static_cast<size_t>(2 * o->filter_order + BLOCK_LENGTH);
}

void upsampler_reset(void *object) {
    upsampler_t *o = static_cast<upsampler_t *>(object);
    std::memset(o->history, 0, upsampler_history_size(o) * sizeof(int16_t));
}

zx_status_t upsampler_init(float ratio, int32_t filter_order, void **object) {
    ZX_ASSERT(filter_order > 1);
    ZX_ASSERT(object);
    if (ratio != 0.5f) return ZX_STATUS_INVALID_ARGUMENT;
    zx_owned<upsampler_t, upsampler_delete> o(zx_heap_zeroed<upsampler_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->filter_order = filter_order;
    o->ratio = ratio;
    o->kernel = zx_heap_zeroed<float>(static_cast<size_t>(2 * filter_order + 1));
    o->filtered = zx_heap_zeroed<int16_t>(BLOCK_LENGTH);
    o->history = zx_heap_zeroed<int16_t>(upsampler_history_size(o.get()));
    if (!o->kernel || !o->filtered || !o->history) return ZX_STATUS_OUT_OF_MEMORY;
    generate_kernel_filter(filter_order, o->kernel, ratio);
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

// Every block is written from the start of the output buffer, while the returned count adds them up: callers
// pass at most 1024 samples, which is one block.
int32_t upsampler_process(void *object, const int16_t *input_buffer, int32_t input_buffer_size,
                          int16_t *output_buffer) {
    upsampler_t *o = static_cast<upsampler_t *>(object);
    const int32_t factor = zx_float_to_int32(1.0f / o->ratio);
    const int32_t held = 2 * o->filter_order;
    int32_t total = 0;
    while (input_buffer_size > 0) {
        const int32_t chunk = zx_min_int32(input_buffer_size, BLOCK_LENGTH / factor);
        const int32_t length = factor * chunk;
        std::memset(o->history + held, 0, static_cast<size_t>(length) * sizeof(int16_t));
        for (int32_t k = 0; k < chunk; k++) o->history[held + factor * k] = input_buffer[k];
        const int32_t num_filtered =
            low_pass_filter(o->history, held + length, o->filtered, o->kernel, o->filter_order);
        std::memcpy(output_buffer, o->filtered, static_cast<size_t>(num_filtered) * sizeof(int16_t));
        std::memmove(o->history, o->history + length, static_cast<size_t>(held) * sizeof(int16_t));
        total += num_filtered;
        input_buffer += chunk;
        input_buffer_size -= chunk;
    }
    return total;
}

// Counts in whole numbers: single precision would be wrong from 2^24 samples on, 35 minutes at 8 kHz.
int32_t upsampler_to_output(const void *, int32_t num_samples) {
    return zx_int64_to_int32(int64_t{2} * num_samples);
}

int32_t upsampler_to_input(const void *, int32_t num_samples) {
    return static_cast<int32_t>((int64_t{num_samples} + 1) / 2);
}

}  // namespace

zx_status_t zx_resampler_init(int32_t input_frequency, int32_t output_frequency, int32_t filter_order,
                              zx_resampler_t **object) {
    ZX_ASSERT(output_frequency > 0);
    ZX_ASSERT(input_frequency > 0);
    ZX_ASSERT(filter_order > 1);
    ZX_ASSERT(object);
    *object = zx_heap_zeroed<zx_resampler_t>();
    if (!*object) return ZX_STATUS_OUT_OF_MEMORY;
    zx_resampler_t *o = *object;
    const float ratio = static_cast<float>(input_frequency) / static_cast<float>(output_frequency);
    if (ratio >= 1.0f) {
        *o = {output_frequency,     input_frequency,      nullptr,
              downsampler_process,  downsampler_reset,    downsampler_delete,
              downsampler_to_input, downsampler_to_output};
        return downsampler_init(ratio, filter_order, &o->object);
    }
    *o = {output_frequency,   input_frequency,    nullptr,
          upsampler_process,  upsampler_reset,    upsampler_delete,
          upsampler_to_input, upsampler_to_output};
    return upsampler_init(ratio, filter_order, &o->object);
}

void zx_resampler_delete(zx_resampler_t *object) {
    if (!object) return;
    object->delete_fn(object->object);
    std::free(object);
}

int32_t zx_resampler_process(zx_resampler_t *object, const int16_t *input_buffer, int32_t input_buffer_size,
                             int16_t *output_buffer) {
    ZX_ASSERT(object);
    ZX_ASSERT(input_buffer);
    ZX_ASSERT(input_buffer_size > 0);
    ZX_ASSERT(output_buffer);
    return object->process_fn(object->object, input_buffer, input_buffer_size, output_buffer);
}

int32_t zx_resampler_convert_num_samples_to_input_sample_rate(const zx_resampler_t *object,
                                                              int32_t num_samples) {
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(object);
    return object->to_input_fn(object->object, num_samples);
}

int32_t zx_resampler_convert_num_samples_to_output_sample_rate(const zx_resampler_t *object,
                                                               int32_t num_samples) {
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(object);
    return object->to_output_fn(object->object, num_samples);
}
