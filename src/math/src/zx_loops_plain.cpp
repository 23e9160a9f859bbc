#include "zx_loops.h"
#include "zx_math_forms.h"

const zx_loops_t ZX_LOOPS_PLAIN = LOOPS;
