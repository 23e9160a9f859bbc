// SPDX-License-Identifier: Apache-2.0
// What the processor at hand can do, asked of it while the program runs. A build for a machine that these
// processors are not answers no.
#ifndef ZX_PROCESSOR_H
#define ZX_PROCESSOR_H

bool zx_processor_has_avx2_and_fma();
bool zx_processor_has_avx512();  // F, BW, CD, DQ and VL, as x86-64-v4 asks for
bool zx_processor_has_avx512_vnni();
bool zx_processor_has_amx();          // tiles of bytes, beside AVX-512; asks the system to grant them
bool zx_processor_has_dot_product();  // of bytes, beside NEON

#endif
