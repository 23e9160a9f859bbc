// SPDX-License-Identifier: Apache-2.0
#include "zx_normalization.h"

#include <memory>

#include "zx_assert.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_kernels.h"

zx_status_t zx_normalization_param_load(FILE *file, zx_normalization_param_t **param) {
    ZX_ASSERT(file);
    ZX_ASSERT(param);
    *param = nullptr;
    zx_owned<zx_normalization_param_t, zx_normalization_param_delete> p(
        zx_heap_zeroed<zx_normalization_param_t>());
    if (!p) return ZX_STATUS_OUT_OF_MEMORY;
    zx_status_t status = zx_file_read_count(file, &p->dimension);
    if (status != ZX_STATUS_SUCCESS) return status;
    const size_t dimension = static_cast<size_t>(p->dimension);
    for (int16_t **values : {&p->mean, &p->scale}) {
        *values = zx_heap_zeroed<int16_t>(dimension);
        if (!*values) return ZX_STATUS_OUT_OF_MEMORY;
        status = zx_file_read_int16(file, *values, dimension);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    *param = p.release();
    return ZX_STATUS_SUCCESS;
}

void zx_normalization_param_delete(zx_normalization_param_t *param) {
    if (!param) return;
    std::free(param->scale);
    std::free(param->mean);
    std::free(param);
}

void zx_normalization_process(const zx_normalization_param_t *param, const int16_t *x, int16_t *y,
                              int32_t num_frames) {
    ZX_ASSERT(param);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    ZX_ASSERT(num_frames > 0);
    zx_kernels()->loops->normalize_rows(param->dimension, num_frames, param->mean, param->scale, x, y);
}
