#include "zx_fc.h"

#include <algorithm>
#include <memory>

#include "zx_assert.h"
#include "zx_fc_kernels.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_math.h"
#include "zx_multiversion.h"

zx_status_t zx_fc_param_load(FILE *file, zx_fc_param_t **param) {
    ZX_ASSERT(file);
    ZX_ASSERT(param);
    *param = nullptr;
    zx_owned<zx_fc_param_t, zx_fc_param_delete> p(zx_heap_zeroed<zx_fc_param_t>());
    if (!p) return ZX_STATUS_OUT_OF_MEMORY;
    zx_status_t status = zx_file_read_count(file, &p->input_dimension);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_file_read_count(file, &p->output_dimension, INT32_MAX / p->input_dimension);
    if (status != ZX_STATUS_SUCCESS) return status;

    const size_t num_biases = static_cast<size_t>(p->output_dimension);
    const size_t num_weights = num_biases * static_cast<size_t>(p->input_dimension);
    p->biases = zx_heap_zeroed<int8_t>(num_biases);
    p->weights = zx_heap_zeroed<int8_t>(num_weights);
    if (!p->biases || !p->weights) return ZX_STATUS_OUT_OF_MEMORY;
    status = zx_file_read_int8(file, p->biases, num_biases);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_file_read_int8(file, p->weights, num_weights);
    if (status != ZX_STATUS_SUCCESS) return status;
    *param = p.release();
    return ZX_STATUS_SUCCESS;
}

void zx_fc_param_delete(zx_fc_param_t *param) {
    if (!param) return;
    std::free(param->weights);
    std::free(param->biases);
    std::free(param);
}

zx_status_t zx_fc_init(zx_memory_t *memory, const zx_fc_param_t *param, bool accumulate, zx_fc_t **object) {
    ZX_ASSERT(memory);
    ZX_ASSERT(param);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_fc_t, zx_fc_delete> o(zx_memory_zeroed<zx_fc_t>(memory));
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->memory = memory;
    o->param = param;
    o->accumulate = accumulate;
    o->kernel = zx_fc_best_kernel();
    if (o->kernel->needs_packing) {
        o->packed = zx_memory_zeroed<int8_t>(memory, zx_fc_packed_size(param));
        if (!o->packed) return ZX_STATUS_OUT_OF_MEMORY;
        zx_fc_pack(param, o->packed);
    }
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_fc_delete(zx_fc_t *object) {
    if (!object) return;
    zx_memory_free(object->memory, object->packed);
    zx_memory_free(object->memory, object);
}

void zx_fc_process(const zx_fc_t *object, const int16_t *x, int16_t *y) {
    ZX_ASSERT(object);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    object->kernel->process(object, 1, x, 0, y, 0);
}

void zx_fc_process_rows(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                        int16_t *y, ptrdiff_t y_stride) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_rows > 0);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    object->kernel->process(object, num_rows, x, x_stride, y, y_stride);
}

namespace {

// Adds the Q17 sum of one output, rounded to Q10, to `previous` in 32 bits and saturates once.
inline int16_t finish_output(uint32_t sum, int8_t bias, int16_t previous) {
    const uint32_t bias_q17 = static_cast<uint32_t>(bias * 1024);
    const int32_t rounded = static_cast<int32_t>(sum + bias_q17 + 64) >> 7;
    return zx_int32_to_int16(previous + rounded);
}

}  // namespace

ZX_MULTIVERSION
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
