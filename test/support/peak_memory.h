// SPDX-License-Identifier: Apache-2.0
#ifndef PARLEY_TEST_PEAK_MEMORY_H
#define PARLEY_TEST_PEAK_MEMORY_H

#include <gtest/gtest.h>
#if defined(_WIN32)
#include <windows.h>
// which comes first
#include <psapi.h>
#else
#include <sys/resource.h>
#endif

#include <cstdint>

// The most memory that the process has had so far, bytes.
inline uint64_t peak_memory() {
#if defined(_WIN32)
    PROCESS_MEMORY_COUNTERS counters{};
    EXPECT_TRUE(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)));
    return counters.PeakWorkingSetSize;
#else
    rusage used;
    EXPECT_EQ(getrusage(RUSAGE_SELF, &used), 0);
    return uint64_t{1024} * static_cast<uint64_t>(used.ru_maxrss);
#endif
}

#endif
