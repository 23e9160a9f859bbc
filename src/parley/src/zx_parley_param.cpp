// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_param.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "zx_assert.h"
#include "zx_error.h"
#include "zx_heap.h"
#include "zx_parley.h"

namespace {

constexpr char MAGIC[] = "parley";
constexpr char FILE_KIND[] = "Parley model (.zx)";

}  // namespace

zx_status_t zx_parley_param_load(FILE *file, zx_parley_param_t **param) {
    ZX_ASSERT(file);
    ZX_ASSERT(param);
    *param = nullptr;

    char magic[sizeof(MAGIC)] = {};
    if (std::fread(magic, 1, sizeof(magic) - 1, file) != sizeof(magic) - 1) return ZX_STATUS_IO_ERROR;
    if (std::strcmp(magic, MAGIC) != 0) {
        zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_incorrect_file, FILE_KIND);
        return ZX_STATUS_INVALID_ARGUMENT;
    }
    char version[sizeof(ZX_PARLEY_VERSION)] = {};
    if (std::fread(version, 1, sizeof(version) - 1, file) != sizeof(version) - 1) {
        zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_fread_failure, static_cast<void *>(file));
        return ZX_STATUS_IO_ERROR;
    }
    if (std::strcmp(version, ZX_PARLEY_VERSION) != 0) {
        zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_incorrect_file_version, FILE_KIND, version,
                           ZX_PARLEY_VERSION);
        return ZX_STATUS_INVALID_ARGUMENT;
    }

    zx_owned<zx_parley_param_t, zx_parley_param_delete> p(zx_heap_zeroed<zx_parley_param_t>());
    if (!p) return ZX_STATUS_OUT_OF_MEMORY;
    zx_status_t status = zx_parley_classifier_param_load(file, &p->classifier);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_parley_cluster_param_load(file, &p->cluster);
    if (status != ZX_STATUS_SUCCESS) return status;
    *param = p.release();
    return ZX_STATUS_SUCCESS;
}

void zx_parley_param_delete(zx_parley_param_t *param) {
    if (!param) return;
    zx_parley_cluster_param_delete(param->cluster);
    zx_parley_classifier_param_delete(param->classifier);
    std::free(param);
}
