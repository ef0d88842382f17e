// The labelling kernel, compiled once per instruction set.
//
//  1. A row goes in tiles of kTile pixels held in GCC vector types of 16
//     lanes, so the distances, best distances and labels of a tile stay in
//     registers while every centre and band passes over them. The baseline
//     copy runs a vector as four SSE halves, AVX2 as two, AVX-512 as one.
//  2. Per pixel: the distance to each centre summed band by band; a strictly
//     smaller distance takes the class; then the band values are summed to
//     find background pixels.
//  3. The last, shorter tile is copied into zero-padded rows and labelled
//     the same way; only its real pixels are kept.
#include "LabelRow.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

// The vector-typed helpers are inlined into callers compiled for the same
// instruction set, so no vector crosses a call of another set's ABI.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace isodata {

namespace {

constexpr double kBackgroundSum = 1e-8;
constexpr float kDistanceCeiling = 1e7f;
// Vectors per tile: independent chains of additions for the CPU to overlap.
constexpr std::size_t kVectors = 2;

// Vectors of Lanes floats, and the matching integers, as wide as one
// register of the instruction set the copy is compiled for.
template <std::size_t Lanes>
struct Vec {
    typedef float Floats __attribute__((vector_size(Lanes * sizeof(float))));
    typedef std::int32_t Ints __attribute__((vector_size(Lanes * sizeof(std::int32_t))));

    static ISODATA_ALWAYS_INLINE Floats Load(const float* p) {
        Floats v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    // |v|: the sign bit cleared, as fabs does.
    static ISODATA_ALWAYS_INLINE Floats Abs(Floats v) {
        return reinterpret_cast<Floats>(reinterpret_cast<Ints>(v) & 0x7fffffff);
    }
};

// The smallest float whose double value is not below kBackgroundSum: a float
// sum s has (double)s < kBackgroundSum exactly when s < this threshold.
float BackgroundThreshold() {
    const float nearest = static_cast<float>(kBackgroundSum);
    return static_cast<double>(nearest) < kBackgroundSum ? std::nextafter(nearest, 1.0f) : nearest;
}

// Labels Lanes * kVectors pixels starting at rows[k] + x0 into labels.
template <std::size_t Lanes>
ISODATA_ALWAYS_INLINE void LabelTile(const float* const* rows, std::size_t x0, const LabelCenters& centers,
                                     float background, std::int32_t* labels) {
    using V = Vec<Lanes>;
    typename V::Floats best[kVectors];
    typename V::Ints label[kVectors];
    for (std::size_t v = 0; v < kVectors; ++v) {
        best[v] = typename V::Floats{} + kDistanceCeiling;
        label[v] = typename V::Ints{};
    }
    const float* centre = centers.values.data();
    for (std::size_t c = 0; c < centers.clusters; ++c, centre += centers.bands) {
        typename V::Floats dist[kVectors] = {};
        for (std::size_t k = 0; k < centers.bands; ++k) {
            const typename V::Floats m = typename V::Floats{} + centre[k];
            for (std::size_t v = 0; v < kVectors; ++v) dist[v] += V::Abs(V::Load(rows[k] + x0 + v * Lanes) - m);
        }
        const typename V::Ints cls = typename V::Ints{} + static_cast<std::int32_t>(c + 1);
        for (std::size_t v = 0; v < kVectors; ++v) {
            const typename V::Ints nearer = dist[v] < best[v];
            best[v] = nearer ? dist[v] : best[v];
            label[v] = nearer ? cls : label[v];
        }
    }
    typename V::Floats sum[kVectors] = {};
    for (std::size_t k = 0; k < centers.bands; ++k)
        for (std::size_t v = 0; v < kVectors; ++v) sum[v] += V::Load(rows[k] + x0 + v * Lanes);
    for (std::size_t v = 0; v < kVectors; ++v) {
        const typename V::Ints kept = V::Abs(sum[v]) < background ? typename V::Ints{} : label[v];
        std::memcpy(labels + v * Lanes, &kept, sizeof kept);
    }
}

template <std::size_t Lanes>
ISODATA_ALWAYS_INLINE void LabelRowBody(const float* const* rows, std::size_t n, const LabelCenters& centers,
                                        std::int32_t* labels) {
    constexpr std::size_t kTile = Lanes * kVectors;
    const float background = BackgroundThreshold();
    std::size_t x0 = 0;
    for (; x0 + kTile <= n; x0 += kTile) LabelTile<Lanes>(rows, x0, centers, background, labels + x0);
    if (x0 == n) return;
    const std::size_t rest = n - x0;
    std::vector<float> padded(centers.bands * kTile, 0.0f);
    std::vector<const float*> tail(centers.bands);
    for (std::size_t k = 0; k < centers.bands; ++k) {
        std::copy_n(rows[k] + x0, rest, padded.data() + k * kTile);
        tail[k] = padded.data() + k * kTile;
    }
    std::int32_t last[kTile];
    LabelTile<Lanes>(tail.data(), 0, centers, background, last);
    std::copy_n(last, rest, labels + x0);
}

void LabelRowBaseline(const float* const* rows, std::size_t n, const LabelCenters& centers, std::int32_t* labels) {
    LabelRowBody<4>(rows, n, centers, labels);
}

#if ISODATA_VECTOR_VARIANTS
ISODATA_TARGET_AVX2 void LabelRowAvx2(const float* const* rows, std::size_t n, const LabelCenters& centers,
                                      std::int32_t* labels) {
    LabelRowBody<8>(rows, n, centers, labels);
}

ISODATA_TARGET_AVX512 void LabelRowAvx512(const float* const* rows, std::size_t n, const LabelCenters& centers,
                                          std::int32_t* labels) {
    LabelRowBody<16>(rows, n, centers, labels);
}
#endif

} // namespace

void LabelRow(VectorIsa isa, const float* const* rows, std::size_t n, const LabelCenters& centers,
              std::int32_t* labels) {
    switch (isa) {
#if ISODATA_VECTOR_VARIANTS
    case VectorIsa::Avx512: return LabelRowAvx512(rows, n, centers, labels);
    case VectorIsa::Avx2: return LabelRowAvx2(rows, n, centers, labels);
#endif
    default: return LabelRowBaseline(rows, n, centers, labels);
    }
}

void LabelRow(const float* const* rows, std::size_t n, const LabelCenters& centers, std::int32_t* labels) {
    LabelRow(BestIsa(), rows, n, centers, labels);
}

} // namespace isodata
