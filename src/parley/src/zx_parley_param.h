// SPDX-License-Identifier: Apache-2.0
// The model file: magic "parley", version "1.0.0", the classifier's block, the cluster block. Packed,
// little-endian, without padding, lengths or checksums; what follows the cluster block is not read.
#ifndef ZX_PARLEY_PARAM_H
#define ZX_PARLEY_PARAM_H

#include <cstdio>

#include "zx_base.h"
#include "zx_parley_classifier.h"
#include "zx_parley_cluster.h"

// The engine's version, which model files name: of the results and the format, whatever the product around
// it is called.
inline constexpr char ZX_PARLEY_VERSION[] = "1.0.0";

struct zx_parley_param_t {
    zx_parley_classifier_param_t *classifier;  // owned
    zx_parley_cluster_param_t *cluster;        // owned
};

// Reads a whole model from the start of an open file, which stays the caller's. ZX_STATUS_INVALID_ARGUMENT:
// no model, another version, a value out of range; ZX_STATUS_IO_ERROR: short read; ZX_STATUS_OUT_OF_MEMORY. A
// wrong magic, a wrong version and a file that ends inside the version leave a message. On failure *param is
// null.
[[nodiscard]] zx_status_t zx_parley_param_load(FILE *file, zx_parley_param_t **param);

// Releases the parameters; null is accepted.
void zx_parley_param_delete(zx_parley_param_t *param);

#endif
