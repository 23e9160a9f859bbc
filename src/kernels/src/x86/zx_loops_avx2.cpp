// SPDX-License-Identifier: Apache-2.0
#include "zx_kernel_functions.h"
#include "zx_loops.h"

const zx_loops_t ZX_LOOPS_AVX2 = LOOPS;
