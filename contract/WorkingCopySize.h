// The size of a run's working copy, which both the plug-in (that makes it)
// and the run library (that finds room for it) must agree on: the input
// reduced by its shorter side, every band as 32-bit floats, held in memory
// when the run's budget allows and written beside the input otherwise.
#pragma once

#include <cstdint>

namespace isodata {

// Reduction by the input's shorter side: 1 up to 100 pixels, 0.5 up to
// 5000, 0.25 beyond.
inline constexpr int kFullSizeUpTo = 100;   // pixels on the shorter side read at full size
inline constexpr int kHalfSizeUpTo = 5000;  // and at half size; beyond, at quarter size

inline double ReductionFactor(int width, int height) {
    const double shorter = static_cast<double>(width < height ? width : height);
    if (shorter <= kFullSizeUpTo) return 1.0;
    if (shorter <= kHalfSizeUpTo) return 0.5;
    return 0.25;
}

// Reduced size of one side, rounded half up.
inline int ReducedSize(int size, double factor) { return static_cast<int>(size * factor + 0.5); }

// Bytes of a working copy of width x height reduced pixels and bands bands.
inline std::int64_t WorkingCopyBytes(int width, int height, int bands) {
    return static_cast<std::int64_t>(width) * height * bands * static_cast<std::int64_t>(sizeof(float));
}

// Whether a working copy of bytes stays in memory under budget (0: never).
inline bool WorkingCopyInMemory(std::int64_t bytes, std::int64_t budget) { return budget > 0 && bytes <= budget; }

} // namespace isodata
