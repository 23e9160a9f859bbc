// SPDX-License-Identifier: Apache-2.0
#include "zx_fc.h"

#include <memory>

#include "zx_assert.h"
#include "zx_fc_packing.h"
#include "zx_file.h"
#include "zx_heap.h"

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
    o->kernels = zx_kernels();
    if (const size_t size = zx_fc_packed_size(param, o->kernels->packing); size > 0) {
        o->packed = zx_memory_zeroed<int8_t>(memory, size);
        if (!o->packed) return ZX_STATUS_OUT_OF_MEMORY;
        zx_fc_pack(param, o->kernels->packing, o->packed);
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
    object->kernels->layer(object, 1, x, 0, y, 0);
}

void zx_fc_process_rows(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                        int16_t *y, ptrdiff_t y_stride) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_rows > 0);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    object->kernels->layer(object, num_rows, x, x_stride, y, y_stride);
}
