// What the processor at hand can do, for code that is written once per kind of processor. Build with
// -DPARLEY_VECTOR_KERNELS=OFF to leave such code out; then, and on other processors, plain loops do all the
// work.
#ifndef ZX_PROCESSOR_H
#define ZX_PROCESSOR_H

#if defined(PARLEY_VECTOR_KERNELS) && defined(__x86_64__) && defined(__GNUC__)
#define ZX_X86_KERNELS 1
#include <immintrin.h>

#define ZX_TARGET_AVX2 __attribute__((target("avx2")))
#define ZX_TARGET_AVX2_FMA __attribute__((target("avx2,fma")))
#define ZX_TARGET_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl")))
#define ZX_TARGET_VNNI __attribute__((target("avx512f,avx512bw,avx512vl,avx512vnni")))

inline bool zx_has_avx2() {
    return __builtin_cpu_supports("avx2");
}

inline bool zx_has_avx2_fma() {
    return zx_has_avx2() && __builtin_cpu_supports("fma");
}

inline bool zx_has_avx512() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl");
}

inline bool zx_has_vnni() {
    return zx_has_avx512() && __builtin_cpu_supports("avx512vnni");
}

#else
#define ZX_X86_KERNELS 0
#endif

#if defined(PARLEY_VECTOR_KERNELS) && defined(__wasm_simd128__)
#define ZX_WASM_KERNELS 1
#include <wasm_simd128.h>
#else
#define ZX_WASM_KERNELS 0
#endif

inline bool zx_has_nothing_special() {
    return true;
}

#endif
