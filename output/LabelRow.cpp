// The labelling kernel, compiled once per instruction set.
//
//  1. A row goes in tiles of kVectors vectors of floats as wide as one
//     register, so the distances, best distances and labels of a tile stay
//     in registers while every centre and band passes over them.
//  2. Per pixel: the distance to each centre summed band by band; a strictly
//     smaller distance takes the class; then the band values are summed to
//     find background pixels, which the tile marks -1. Without the plain
//     rules the magnitudes are summed instead, to find and count the
//     pixels that are 0 in every band, which keep their class.
//  3. The last, shorter tile is copied into zero-padded rows and labelled
//     the same way; only its real pixels are kept.
#include "LabelRow.h"

#include "Lanes.h"

#include <IsodataRun.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

// Vectors pass only between functions inlined into one copy (see Lanes.h).
#pragma GCC diagnostic ignored "-Wpsabi"

namespace isodata {

namespace {

constexpr double kBackgroundSum = 1e-8;
// Vectors per tile: independent chains of additions for the CPU to overlap.
constexpr std::size_t kVectors = 2;
// What a tile writes for a background pixel; LabelRow makes it 0.
constexpr std::int32_t kBackgroundMark = -1;
// Set beside its class on a pixel 0 in every band; LabelRow counts and clears it.
constexpr std::int32_t kZeroFlag = 1 << 16;

// The smallest float whose double value is not below kBackgroundSum: a float
// sum s has (double)s < kBackgroundSum exactly when s < this threshold.
float BackgroundThreshold() {
    const float nearest = static_cast<float>(kBackgroundSum);
    return static_cast<double>(nearest) < kBackgroundSum ? std::nextafter(nearest, 1.0f) : nearest;
}

// Labels Lanes * kVectors pixels starting at rows[k] + x0 into labels. Under
// the plain rules a pixel whose band values sum to below background is
// marked kBackgroundMark; without them one whose values are all 0 keeps its
// class with kZeroFlag set.
template <std::size_t Lanes, bool PlainRules>
ISODATA_ALWAYS_INLINE void LabelTile(const float* const* rows, std::size_t x0, const LabelCenters& centers,
                                     float reach, float background, std::int32_t* labels) {
    using Floats = lanes::Vector<float, Lanes>;
    using Ints = lanes::Vector<std::int32_t, Lanes>;
    Floats best[kVectors];
    Ints label[kVectors];
    for (std::size_t v = 0; v < kVectors; ++v) {
        best[v] = lanes::Broadcast<Lanes>(reach);
        label[v] = Ints{};
    }
    const float* centre = centers.values.data();
    for (std::size_t c = 0; c < centers.clusters; ++c, centre += centers.bands) {
        Floats dist[kVectors] = {};
        for (std::size_t k = 0; k < centers.bands; ++k) {
            const Floats m = lanes::Broadcast<Lanes>(centre[k]);
            for (std::size_t v = 0; v < kVectors; ++v)
                dist[v] += lanes::Abs(lanes::Load<Lanes>(rows[k] + x0 + v * Lanes) - m);
        }
        const Ints cls = lanes::Broadcast<Lanes>(static_cast<std::int32_t>(c + 1));
        for (std::size_t v = 0; v < kVectors; ++v) {
            const Ints nearer = dist[v] < best[v];
            best[v] = nearer ? dist[v] : best[v];
            label[v] = nearer ? cls : label[v];
        }
    }
    Floats sum[kVectors] = {};
    for (std::size_t k = 0; k < centers.bands; ++k)
        for (std::size_t v = 0; v < kVectors; ++v) {
            const Floats value = lanes::Load<Lanes>(rows[k] + x0 + v * Lanes);
            if constexpr (PlainRules) sum[v] += value;
            else sum[v] += lanes::Abs(value);
        }
    for (std::size_t v = 0; v < kVectors; ++v) {
        Ints kept;
        if constexpr (PlainRules)
            kept = lanes::Abs(sum[v]) < background ? lanes::Broadcast<Lanes>(kBackgroundMark) : label[v];
        else  // a sum of magnitudes below the least float is 0: every value is 0
            kept = sum[v] < background ? (label[v] | lanes::Broadcast<Lanes>(kZeroFlag)) : label[v];
        std::memcpy(labels + v * Lanes, &kept, sizeof kept);
    }
}

template <std::size_t Lanes, bool PlainRules>
ISODATA_ALWAYS_INLINE void LabelRowWith(const float* const* rows, std::size_t n, const LabelCenters& centers,
                                        std::int32_t* labels) {
    constexpr std::size_t kTile = Lanes * kVectors;
    // Without the plain rules every distance is below +infinity.
    const float background = PlainRules ? BackgroundThreshold() : std::numeric_limits<float>::denorm_min();
    const float reach = PlainRules ? kLabellingReach : std::numeric_limits<float>::infinity();
    std::size_t x0 = 0;
    for (; x0 + kTile <= n; x0 += kTile)
        LabelTile<Lanes, PlainRules>(rows, x0, centers, reach, background, labels + x0);
    if (x0 == n) return;
    const std::size_t rest = n - x0;
    std::vector<float> padded(centers.bands * kTile, 0.0f);
    std::vector<const float*> tail(centers.bands);
    for (std::size_t k = 0; k < centers.bands; ++k) {
        std::copy_n(rows[k] + x0, rest, padded.data() + k * kTile);
        tail[k] = padded.data() + k * kTile;
    }
    std::int32_t last[kTile];
    LabelTile<Lanes, PlainRules>(tail.data(), 0, centers, reach, background, last);
    std::copy_n(last, rest, labels + x0);
}

template <std::size_t Lanes>
ISODATA_ALWAYS_INLINE void LabelRowBody(const float* const* rows, std::size_t n, const LabelCenters& centers,
                                        std::int32_t* labels) {
    if (centers.plainRules) LabelRowWith<Lanes, true>(rows, n, centers, labels);
    else LabelRowWith<Lanes, false>(rows, n, centers, labels);
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
              std::int32_t* labels, const std::uint8_t* excluded, LabelTally* tally, const std::uint8_t* nonFinite) {
    switch (isa) {
#if ISODATA_VECTOR_VARIANTS
    case VectorIsa::Avx512: LabelRowAvx512(rows, n, centers, labels); break;
    case VectorIsa::Avx2: LabelRowAvx2(rows, n, centers, labels); break;
#endif
    default: LabelRowBaseline(rows, n, centers, labels); break;
    }
    for (std::size_t x = 0; x < n; ++x) {
        const bool out = excluded && excluded[x];
        const bool allZero = labels[x] != kBackgroundMark && (labels[x] & kZeroFlag) != 0;
        if (allZero) labels[x] &= ~kZeroFlag;
        if (tally && !out) {
            if (allZero) ++tally->allZero;
            if (labels[x] == kBackgroundMark) ++tally->background;
            else if (labels[x] <= 0 && nonFinite && nonFinite[x]) ++tally->nonFinite;
            else if (labels[x] <= 0) ++tally->beyondReach;
        }
        if (out || labels[x] == kBackgroundMark) labels[x] = 0;
    }
}

void LabelRow(const float* const* rows, std::size_t n, const LabelCenters& centers, std::int32_t* labels,
              const std::uint8_t* excluded, LabelTally* tally, const std::uint8_t* nonFinite) {
    LabelRow(BestIsa(), rows, n, centers, labels, excluded, tally, nonFinite);
}

} // namespace isodata
