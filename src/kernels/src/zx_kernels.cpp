// SPDX-License-Identifier: Apache-2.0
#include "zx_kernels.h"

#include <iterator>

#include "zx_kernel_functions.h"
#include "zx_processor.h"

namespace {

bool always() {
    return true;
}

#if PARLEY_HAS_AMX
bool has_amx() {
    return zx_processor_has_amx() && zx_fc_amx_agrees();
}
#endif

constexpr zx_kernels_t VARIANTS[] = {
#if PARLEY_HAS_AMX
    {"AMX", has_amx, &ZX_LOOPS_AVX512, zx_sigmoid_avx512, zx_tanh_avx512, zx_transform_avx2, zx_fc_layer_amx,
     zx_packing::quads},
#endif
#if defined(PARLEY_VECTOR_KERNELS) && defined(__x86_64__)
    {"AVX-512 VNNI", zx_processor_has_avx512_vnni, &ZX_LOOPS_AVX512, zx_sigmoid_avx512, zx_tanh_avx512,
     zx_transform_avx2, zx_fc_layer_vnni, zx_packing::pairs},
    {"AVX-512", zx_processor_has_avx512, &ZX_LOOPS_AVX512, zx_sigmoid_avx512, zx_tanh_avx512,
     zx_transform_avx2, zx_fc_layer_avx2, zx_packing::pairs},
    {"AVX2", zx_processor_has_avx2_and_fma, &ZX_LOOPS_AVX2, zx_sigmoid_avx2, zx_tanh_avx2, zx_transform_avx2,
     zx_fc_layer_avx2, zx_packing::pairs},
#elif defined(PARLEY_VECTOR_KERNELS) && defined(__aarch64__)
    {"NEON with dot products", zx_processor_has_dot_product, &ZX_LOOPS_PLAIN, zx_sigmoid_neon, zx_tanh_neon,
     zx_transform_neon, zx_fc_layer_dotprod, zx_packing::quads},
    {"NEON", always, &ZX_LOOPS_PLAIN, zx_sigmoid_neon, zx_tanh_neon, zx_transform_neon, zx_fc_layer_neon,
     zx_packing::columns},
#elif defined(PARLEY_VECTOR_KERNELS) && defined(__wasm_simd128__)
    {"WebAssembly", always, &ZX_LOOPS_PLAIN, zx_sigmoid_plain, zx_tanh_plain, zx_fft_complex_DIT_RN_generic,
     zx_fc_layer_wasm, zx_packing::pairs},
#endif
    {"plain", always, &ZX_LOOPS_PLAIN, zx_sigmoid_plain, zx_tanh_plain, zx_fft_complex_DIT_RN_generic,
     zx_fc_layer_plain, zx_packing::none},
};

const zx_kernels_t *choose() {
    const zx_kernels_t *variant = VARIANTS;
    while (!variant->is_supported()) variant++;
    return variant;
}

}  // namespace

const zx_kernels_t *zx_kernels_all(size_t *count) {
    *count = std::size(VARIANTS);
    return VARIANTS;
}

const zx_kernels_t *zx_kernels() {
    static const zx_kernels_t *const chosen = choose();
    return chosen;
}
