#include "zx_processor.h"

#if defined(__aarch64__) && defined(__linux__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#elif defined(__aarch64__) && defined(__APPLE__)
#include <sys/sysctl.h>
#endif

#if defined(__x86_64__)

bool zx_processor_has_avx2_and_fma() {
    // What x86-64-v3 has besides is older.
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2");
}

bool zx_processor_has_avx512() {
    return zx_processor_has_avx2_and_fma() && __builtin_cpu_supports("avx512f") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512cd") &&
           __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
}

bool zx_processor_has_avx512_vnni() {
    return zx_processor_has_avx512() && __builtin_cpu_supports("avx512vnni");
}

#else

bool zx_processor_has_avx2_and_fma() {
    return false;
}

bool zx_processor_has_avx512() {
    return false;
}

bool zx_processor_has_avx512_vnni() {
    return false;
}

#endif

bool zx_processor_has_dot_product() {
#if defined(__aarch64__) && defined(__linux__)
    return getauxval(AT_HWCAP) & HWCAP_ASIMDDP;
#elif defined(__aarch64__) && defined(__APPLE__)
    int has = 0;
    size_t size = sizeof(has);
    return sysctlbyname("hw.optional.arm.FEAT_DotProd", &has, &size, nullptr, 0) == 0 && has;
#else
    return false;
#endif
}
