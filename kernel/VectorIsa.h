// The instruction sets the row kernels are compiled for, and which of them
// the running CPU has. Each kernel is one inline body compiled once per set
// (x86-64 baseline, AVX2, AVX-512) and chosen at run time, so the binary
// runs on any x86-64 and uses the widest vectors the CPU offers.
//
// Every kernel does the same arithmetic per pixel in the same order in every
// set: additions, subtractions, absolute values, comparisons and selections,
// no fused multiply-add. Vector width changes how many pixels go at once,
// never a bit of the result.
#pragma once

#include <vector>

namespace isodata {

enum class VectorIsa { Baseline, Avx2, Avx512 };

// The sets this CPU runs, Baseline first.
std::vector<VectorIsa> SupportedIsas();

// The widest set this CPU runs; looked up once.
VectorIsa BestIsa();

} // namespace isodata

// Function attributes of the per-set copies. Other compilers and processors
// build the baseline copy alone.
#if defined(__GNUC__) && defined(__x86_64__)
#define ISODATA_VECTOR_VARIANTS 1
#define ISODATA_TARGET_AVX2 __attribute__((target("avx2")))
#define ISODATA_TARGET_AVX512 __attribute__((target("avx512f,avx512bw,avx512dq,avx512vl")))
#define ISODATA_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define ISODATA_VECTOR_VARIANTS 0
#define ISODATA_ALWAYS_INLINE inline
#endif
