// One binary for every x86-64 processor: a function marked ZX_MULTIVERSION is compiled for the baseline
// (SSE2), for AVX2 with FMA and for AVX-512, and the right version is chosen when the library is loaded. The
// source is the same plain loop for all of them. Results do not depend on the choice: integer sums wrap, and
// floating-point chains keep their written order, with fused multiply-add only where zx_fma says so (the
// baseline computes it in software).
//
// Build with -DPARLEY_MULTIVERSION=OFF for the baseline alone; sanitizer builds do so.
#ifndef ZX_MULTIVERSION_H
#define ZX_MULTIVERSION_H

#if defined(PARLEY_MULTIVERSION) && defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ZX_MULTIVERSION __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define ZX_MULTIVERSION
#endif

#endif
