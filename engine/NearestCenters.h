// The assignment kernel: the nearest centre of every pixel of a run of
// pixels, in city-block distance.
#pragma once

#include "VectorIsa.h"

#include <cstddef>

namespace isodata {

// For x < n: best[x] is the distance of the pixel bands[0..B-1][x] to its
// nearest centre, the sum over bands of ClassifyTerm in band order, and
// label[x] that centre's number as a double. centers holds K rows of B
// values. A centre must be strictly nearer to take a pixel, so ties keep the
// lower number; with no centre, or only NaN distances, best stays +inf and
// label 0.
template <class T>
void NearestCenters(const T* const* bands, std::size_t bandCount, std::size_t n, const T* centers,
                    std::size_t clusters, double* best, double* label);

// The same with the copy compiled for isa, which the CPU must run.
template <class T>
void NearestCenters(VectorIsa isa, const T* const* bands, std::size_t bandCount, std::size_t n, const T* centers,
                    std::size_t clusters, double* best, double* label);

} // namespace isodata
