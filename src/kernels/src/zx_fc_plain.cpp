// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "zx_integer.h"
#include "zx_kernel_functions.h"

namespace {

// Adds the Q17 sum of one output, rounded to Q10, to `previous` in 32 bits and saturates once.
inline int16_t finish_output(uint32_t sum, int8_t bias, int16_t previous) {
    const uint32_t bias_q17 = static_cast<uint32_t>(bias * 1024);
    const int32_t rounded = static_cast<int32_t>(sum + bias_q17 + 64) >> 7;
    return zx_int32_to_int16(previous + rounded);
}

}  // namespace

void zx_fc_process_generic(const zx_fc_t *object, const int16_t *x, int16_t *y) {
    const int32_t num_inputs = object->param->input_dimension;
    const int32_t num_outputs = object->param->output_dimension;
    const int8_t *row = object->param->weights;
    const int8_t *biases = object->param->biases;
    if (!object->accumulate) std::fill_n(y, num_outputs, int16_t{0});

    // Four outputs at a time share the loads of x. The sums are unsigned because they wrap.
    int32_t o = 0;
    for (; o + 4 <= num_outputs; o += 4, row += 4 * num_inputs) {
        const int8_t *row1 = row + num_inputs, *row2 = row1 + num_inputs, *row3 = row2 + num_inputs;
        uint32_t sum0 = 0, sum1 = 0, sum2 = 0, sum3 = 0;
        for (int32_t i = 0; i < num_inputs; i++) {
            const int32_t input = x[i];
            sum0 += static_cast<uint32_t>(input * row[i]);
            sum1 += static_cast<uint32_t>(input * row1[i]);
            sum2 += static_cast<uint32_t>(input * row2[i]);
            sum3 += static_cast<uint32_t>(input * row3[i]);
        }
        y[o] = finish_output(sum0, biases[o], y[o]);
        y[o + 1] = finish_output(sum1, biases[o + 1], y[o + 1]);
        y[o + 2] = finish_output(sum2, biases[o + 2], y[o + 2]);
        y[o + 3] = finish_output(sum3, biases[o + 3], y[o + 3]);
    }
    for (; o < num_outputs; o++, row += num_inputs) {
        uint32_t sum = 0;
        for (int32_t i = 0; i < num_inputs; i++) sum += static_cast<uint32_t>(x[i] * row[i]);
        y[o] = finish_output(sum, biases[o], y[o]);
    }
}

void zx_fc_layer_plain(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                       int16_t *y, ptrdiff_t y_stride) {
    for (int32_t r = 0; r < num_rows; r++, x += x_stride, y += y_stride) zx_fc_process_generic(object, x, y);
}
