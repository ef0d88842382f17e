// The assignment kernel, compiled once per instruction set.
//
//  1. Pixels go in tiles of kVectors vectors of doubles as wide as one
//     register, so the running distances, best distances and labels of a
//     tile stay in registers while every centre and band passes over them.
//  2. Per pixel: ClassifyTerm of each band added in band order; a strictly
//     smaller distance takes the cluster.
//  3. The last, shorter tile is copied into zero-padded bands and assigned
//     the same way; only its real pixels are kept.
#include "NearestCenters.h"

#include "PixelTypes.h"

#include <algorithm>
#include <limits>
#include <vector>

// Vectors pass only between functions inlined into one copy (see Lanes.h).
#pragma GCC diagnostic ignored "-Wpsabi"

namespace isodata {

namespace {

constexpr std::size_t kVectors = 4;

template <class T, std::size_t Lanes>
ISODATA_ALWAYS_INLINE void NearestTile(const T* const* bands, std::size_t bandCount, std::size_t x0, const T* centers,
                                       std::size_t clusters, double* best, double* label) {
    using Doubles = lanes::Vector<double, Lanes>;
    Doubles nearest[kVectors], number[kVectors];
    for (std::size_t v = 0; v < kVectors; ++v) {
        nearest[v] = lanes::Broadcast<Lanes>(std::numeric_limits<double>::infinity());
        number[v] = Doubles{};
    }
    const T* centre = centers;
    for (std::size_t k = 0; k < clusters; ++k, centre += bandCount) {
        Doubles dist[kVectors] = {};
        for (std::size_t i = 0; i < bandCount; ++i) {
            const auto m = lanes::Broadcast<Lanes>(centre[i]);
            for (std::size_t v = 0; v < kVectors; ++v)
                dist[v] += ClassifyTerm(m, lanes::Load<Lanes>(bands[i] + x0 + v * Lanes));
        }
        const Doubles cluster = lanes::Broadcast<Lanes>(static_cast<double>(k));
        for (std::size_t v = 0; v < kVectors; ++v) {
            const auto nearer = nearest[v] > dist[v];
            nearest[v] = nearer ? dist[v] : nearest[v];
            number[v] = nearer ? cluster : number[v];
        }
    }
    std::memcpy(best + x0, nearest, sizeof nearest);
    std::memcpy(label + x0, number, sizeof number);
}

template <class T, std::size_t Lanes>
ISODATA_ALWAYS_INLINE void NearestBody(const T* const* bands, std::size_t bandCount, std::size_t n, const T* centers,
                                       std::size_t clusters, double* best, double* label) {
    constexpr std::size_t kTile = Lanes * kVectors;
    std::size_t x0 = 0;
    for (; x0 + kTile <= n; x0 += kTile) NearestTile<T, Lanes>(bands, bandCount, x0, centers, clusters, best, label);
    if (x0 == n) return;
    const std::size_t rest = n - x0;
    std::vector<T> padded(bandCount * kTile, T(0));
    std::vector<const T*> tail(bandCount);
    for (std::size_t i = 0; i < bandCount; ++i) {
        std::copy_n(bands[i] + x0, rest, padded.data() + i * kTile);
        tail[i] = padded.data() + i * kTile;
    }
    double tileBest[kTile], tileLabel[kTile];
    NearestTile<T, Lanes>(tail.data(), bandCount, 0, centers, clusters, tileBest, tileLabel);
    std::copy_n(tileBest, rest, best + x0);
    std::copy_n(tileLabel, rest, label + x0);
}

template <class T>
void NearestBaseline(const T* const* bands, std::size_t bandCount, std::size_t n, const T* centers,
                     std::size_t clusters, double* best, double* label) {
    NearestBody<T, 2>(bands, bandCount, n, centers, clusters, best, label);
}

#if ISODATA_VECTOR_VARIANTS
template <class T>
ISODATA_TARGET_AVX2 void NearestAvx2(const T* const* bands, std::size_t bandCount, std::size_t n, const T* centers,
                                     std::size_t clusters, double* best, double* label) {
    NearestBody<T, 4>(bands, bandCount, n, centers, clusters, best, label);
}

template <class T>
ISODATA_TARGET_AVX512 void NearestAvx512(const T* const* bands, std::size_t bandCount, std::size_t n,
                                         const T* centers, std::size_t clusters, double* best, double* label) {
    NearestBody<T, 8>(bands, bandCount, n, centers, clusters, best, label);
}
#endif

} // namespace

template <class T>
void NearestCenters(VectorIsa isa, const T* const* bands, std::size_t bandCount, std::size_t n, const T* centers,
                    std::size_t clusters, double* best, double* label) {
    switch (isa) {
#if ISODATA_VECTOR_VARIANTS
    case VectorIsa::Avx512: return NearestAvx512(bands, bandCount, n, centers, clusters, best, label);
    case VectorIsa::Avx2: return NearestAvx2(bands, bandCount, n, centers, clusters, best, label);
#endif
    default: return NearestBaseline(bands, bandCount, n, centers, clusters, best, label);
    }
}

template <class T>
void NearestCenters(const T* const* bands, std::size_t bandCount, std::size_t n, const T* centers,
                    std::size_t clusters, double* best, double* label) {
    NearestCenters(BestIsa(), bands, bandCount, n, centers, clusters, best, label);
}

#define ISODATA_INSTANTIATE(T)                                                                                    \
    template void NearestCenters<T>(const T* const*, std::size_t, std::size_t, const T*, std::size_t, double*,   \
                                    double*);                                                                    \
    template void NearestCenters<T>(VectorIsa, const T* const*, std::size_t, std::size_t, const T*, std::size_t, \
                                    double*, double*);
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
