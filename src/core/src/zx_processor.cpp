// SPDX-License-Identifier: Apache-2.0
#include "zx_processor.h"

#include <cstdint>

#if defined(__x86_64__) && defined(__linux__)
#include <cpuid.h>
#include <sys/syscall.h>
#include <unistd.h>
#elif defined(__aarch64__) && defined(__linux__)
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

bool zx_processor_has_amx() {
#if defined(__linux__)
    constexpr unsigned TILES = 1u << 24, BYTES = 1u << 25, SYSTEM_SAVES_STATE = 1u << 27;
    constexpr uint64_t TILE_STATE = uint64_t{3} << 17;  // configuration and data, in what the system saves
    unsigned a, b, c, d;
    if (!zx_processor_has_avx512()) return false;
    if (!__get_cpuid(1, &a, &b, &c, &d) || !(c & SYSTEM_SAVES_STATE)) return false;
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d) || (d & (TILES | BYTES)) != (TILES | BYTES)) return false;
    uint32_t low, high;
    asm("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    if (((uint64_t{high} << 32 | low) & TILE_STATE) != TILE_STATE) return false;
    constexpr long REQUEST = 0x1023, TILE_DATA = 18;  // ARCH_REQ_XCOMP_PERM, XFEATURE_XTILEDATA
    return syscall(SYS_arch_prctl, REQUEST, TILE_DATA) == 0;
#else
    return false;
#endif
}

#else

bool zx_processor_has_amx() {
    return false;
}

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
