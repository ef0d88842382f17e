// Which instruction sets this CPU runs, from the CPU's own feature bits.
#include "VectorIsa.h"

namespace isodata {

std::vector<VectorIsa> SupportedIsas() {
    std::vector<VectorIsa> sets{VectorIsa::Baseline};
#if ISODATA_VECTOR_VARIANTS
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) sets.push_back(VectorIsa::Avx2);
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
        sets.push_back(VectorIsa::Avx512);
#endif
    return sets;
}

VectorIsa BestIsa() {
    static const VectorIsa best = SupportedIsas().back();
    return best;
}

} // namespace isodata
