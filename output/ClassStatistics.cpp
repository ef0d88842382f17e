// Per-class moments of the labelled pixels.
//
// Values are added as their difference from the class centre, so that the
// sums stay small beside the values and the variance loses no digits to
// cancellation; mean = centre + sum / n, variance = squares / n - (sum / n)^2.
// A row is taken in runs of one class: each run is summed band by band in
// eight interleaved partial sums (pixel i of the run in partial i mod 8,
// whatever the vector width, so every instruction set adds the same numbers
// in the same order) and added to its class once, which keeps the cost near
// one pass over the values however the classes lie. The covariance's cross
// products of two bands are summed the same way, each pair in partials of
// its own; up to kFusedBands bands every value's difference is formed once
// for all the pairs it takes part in, which adds the same numbers in the same
// order as taking the pairs one by one.
#include "ClassStatistics.h"

#include "Lanes.h"
#include "ResultRaster.h"

#include <algorithm>
#include <cmath>
#include <cstring>

// Vectors pass only between functions inlined into one copy (see Lanes.h).
#pragma GCC diagnostic ignored "-Wpsabi"

namespace isodata {

ClassMoments::ClassMoments(const LabelCenters& centers, bool withMoments, bool withCovariance)
    : classes_(centers.clusters),
      bands_(centers.bands),
      withMoments_(withMoments),
      withCovariance_(withMoments && withCovariance),
      reference_(centers.values.begin(), centers.values.end()),
      pixels_(centers.clusters, 0),
      sums_(withMoments ? centers.values.size() : 0, 0.0),
      squares_(sums_.size(), 0.0),
      cross_(withCovariance_ ? centers.values.size() * centers.bands : 0, 0.0) {}

namespace {

constexpr std::size_t kPartials = 8;

// Adds values[i] - reference over i < n to the eight partial sums s and
// squares q, value i going to partial i mod 8.
template <std::size_t Lanes>
ISODATA_ALWAYS_INLINE void SumRunBody(const float* values, std::size_t n, double reference, double* s, double* q) {
    using Doubles = lanes::Vector<double, Lanes>;
    constexpr std::size_t kVectors = kPartials / Lanes;
    Doubles sums[kVectors], squares[kVectors];
    for (std::size_t v = 0; v < kVectors; ++v) {
        sums[v] = lanes::Load<Lanes>(s + v * Lanes);
        squares[v] = lanes::Load<Lanes>(q + v * Lanes);
    }
    const Doubles r = lanes::Broadcast<Lanes>(reference);
    std::size_t x = 0;
    for (; x + kPartials <= n; x += kPartials) {
        for (std::size_t v = 0; v < kVectors; ++v) {
            const Doubles d = lanes::Convert<double>(lanes::Load<Lanes>(values + x + v * Lanes)) - r;
            sums[v] += d;
            squares[v] += d * d;
        }
    }
    for (std::size_t v = 0; v < kVectors; ++v) {
        std::memcpy(s + v * Lanes, &sums[v], sizeof sums[v]);
        std::memcpy(q + v * Lanes, &squares[v], sizeof squares[v]);
    }
    for (std::size_t j = 0; x < n; ++x, ++j) {
        const double d = static_cast<double>(values[x]) - reference;
        s[j] += d;
        q[j] += d * d;
    }
}

void SumRunBaseline(const float* values, std::size_t n, double reference, double* s, double* q) {
    SumRunBody<2>(values, n, reference, s, q);
}

#if ISODATA_VECTOR_VARIANTS
ISODATA_TARGET_AVX2 void SumRunAvx2(const float* values, std::size_t n, double reference, double* s, double* q) {
    SumRunBody<4>(values, n, reference, s, q);
}

ISODATA_TARGET_AVX512 void SumRunAvx512(const float* values, std::size_t n, double reference, double* s,
                                        double* q) {
    SumRunBody<8>(values, n, reference, s, q);
}
#endif

// Adds (a[i] - ra) * (b[i] - rb) over i < n to the eight partial sums s,
// product i going to partial i mod 8.
template <std::size_t Lanes>
ISODATA_ALWAYS_INLINE void CrossRunBody(const float* a, const float* b, std::size_t n, double ra, double rb,
                                        double* s) {
    using Doubles = lanes::Vector<double, Lanes>;
    constexpr std::size_t kVectors = kPartials / Lanes;
    Doubles sums[kVectors];
    for (std::size_t v = 0; v < kVectors; ++v) sums[v] = lanes::Load<Lanes>(s + v * Lanes);
    const Doubles rA = lanes::Broadcast<Lanes>(ra), rB = lanes::Broadcast<Lanes>(rb);
    std::size_t x = 0;
    for (; x + kPartials <= n; x += kPartials) {
        for (std::size_t v = 0; v < kVectors; ++v) {
            const Doubles da = lanes::Convert<double>(lanes::Load<Lanes>(a + x + v * Lanes)) - rA;
            const Doubles db = lanes::Convert<double>(lanes::Load<Lanes>(b + x + v * Lanes)) - rB;
            sums[v] += da * db;
        }
    }
    for (std::size_t v = 0; v < kVectors; ++v) std::memcpy(s + v * Lanes, &sums[v], sizeof sums[v]);
    for (std::size_t j = 0; x < n; ++x, ++j)
        s[j] += (static_cast<double>(a[x]) - ra) * (static_cast<double>(b[x]) - rb);
}

void CrossRunBaseline(const float* a, const float* b, std::size_t n, double ra, double rb, double* s) {
    CrossRunBody<2>(a, b, n, ra, rb, s);
}

#if ISODATA_VECTOR_VARIANTS
ISODATA_TARGET_AVX2 void CrossRunAvx2(const float* a, const float* b, std::size_t n, double ra, double rb,
                                      double* s) {
    CrossRunBody<4>(a, b, n, ra, rb, s);
}

ISODATA_TARGET_AVX512 void CrossRunAvx512(const float* a, const float* b, std::size_t n, double ra, double rb,
                                          double* s) {
    CrossRunBody<8>(a, b, n, ra, rb, s);
}
#endif

// Bands up to which a run's cross products are summed for all pairs at once.
constexpr std::size_t kFusedBands = 16;

// For every pair k < l of bands, the p-th in that order: adds
// (rows[k][i] - r[k]) * (rows[l][i] - r[l]) over i < n to the eight partial
// sums s[p * 8 ...], product i going to partial i mod 8, as CrossRunBody does
// for one pair.
template <std::size_t Lanes>
ISODATA_ALWAYS_INLINE void CrossRunsBody(const float* const* rows, std::size_t bands, std::size_t n,
                                         const double* r, double* s) {
    using Doubles = lanes::Vector<double, Lanes>;
    constexpr std::size_t kVectors = kPartials / Lanes;
    Doubles d[kFusedBands][kVectors];
    std::size_t x = 0;
    for (; x + kPartials <= n; x += kPartials) {
        for (std::size_t k = 0; k < bands; ++k) {
            const Doubles reference = lanes::Broadcast<Lanes>(r[k]);
            for (std::size_t v = 0; v < kVectors; ++v)
                d[k][v] = lanes::Convert<double>(lanes::Load<Lanes>(rows[k] + x + v * Lanes)) - reference;
        }
        double* partials = s;
        for (std::size_t k = 0; k < bands; ++k) {
            for (std::size_t l = k + 1; l < bands; ++l, partials += kPartials) {
                for (std::size_t v = 0; v < kVectors; ++v) {
                    Doubles sum = lanes::Load<Lanes>(partials + v * Lanes);
                    sum += d[k][v] * d[l][v];
                    std::memcpy(partials + v * Lanes, &sum, sizeof sum);
                }
            }
        }
    }
    for (std::size_t j = 0; x < n; ++x, ++j) {
        double* partials = s;
        for (std::size_t k = 0; k < bands; ++k)
            for (std::size_t l = k + 1; l < bands; ++l, partials += kPartials)
                partials[j] += (static_cast<double>(rows[k][x]) - r[k]) * (static_cast<double>(rows[l][x]) - r[l]);
    }
}

void CrossRunsBaseline(const float* const* rows, std::size_t bands, std::size_t n, const double* r, double* s) {
    CrossRunsBody<2>(rows, bands, n, r, s);
}

#if ISODATA_VECTOR_VARIANTS
ISODATA_TARGET_AVX2 void CrossRunsAvx2(const float* const* rows, std::size_t bands, std::size_t n, const double* r,
                                       double* s) {
    CrossRunsBody<4>(rows, bands, n, r, s);
}

ISODATA_TARGET_AVX512 void CrossRunsAvx512(const float* const* rows, std::size_t bands, std::size_t n,
                                           const double* r, double* s) {
    CrossRunsBody<8>(rows, bands, n, r, s);
}
#endif

// For every pair k < l of bands up to kFusedBands, the sum of
// (rows[k][x] - r[k]) * (rows[l][x] - r[l]) over x in [begin, end), added
// to cross[k * bands + l]; the same sums as CrossRun pair by pair.
void CrossRuns(const float* const* rows, std::size_t bands, std::size_t begin, std::size_t end, const double* r,
               double* cross) {
    const float* from[kFusedBands];
    for (std::size_t k = 0; k < bands; ++k) from[k] = rows[k] + begin;
    double s[kFusedBands * (kFusedBands - 1) / 2 * kPartials];
    std::fill_n(s, bands * (bands - 1) / 2 * kPartials, 0.0);
    switch (BestIsa()) {
#if ISODATA_VECTOR_VARIANTS
    case VectorIsa::Avx512: CrossRunsAvx512(from, bands, end - begin, r, s); break;
    case VectorIsa::Avx2: CrossRunsAvx2(from, bands, end - begin, r, s); break;
#endif
    default: CrossRunsBaseline(from, bands, end - begin, r, s); break;
    }
    const double* p = s;
    for (std::size_t k = 0; k < bands; ++k)
        for (std::size_t l = k + 1; l < bands; ++l, p += kPartials)
            cross[k * bands + l] += ((p[0] + p[1]) + (p[2] + p[3])) + ((p[4] + p[5]) + (p[6] + p[7]));
}

// The sum of (a[x] - ra) * (b[x] - rb) over x in [begin, end), added to sum.
void CrossRun(const float* a, const float* b, std::size_t begin, std::size_t end, double ra, double rb,
              double& sum) {
    double s[kPartials] = {};
    switch (BestIsa()) {
#if ISODATA_VECTOR_VARIANTS
    case VectorIsa::Avx512: CrossRunAvx512(a + begin, b + begin, end - begin, ra, rb, s); break;
    case VectorIsa::Avx2: CrossRunAvx2(a + begin, b + begin, end - begin, ra, rb, s); break;
#endif
    default: CrossRunBaseline(a + begin, b + begin, end - begin, ra, rb, s); break;
    }
    sum += ((s[0] + s[1]) + (s[2] + s[3])) + ((s[4] + s[5]) + (s[6] + s[7]));
}

// Sum and sum of squares of values[x] - reference over x in [begin, end),
// added to sum and squares.
void SumRun(const float* values, std::size_t begin, std::size_t end, double reference, double& sum,
            double& squares) {
    double s[kPartials] = {}, q[kPartials] = {};
    switch (BestIsa()) {
#if ISODATA_VECTOR_VARIANTS
    case VectorIsa::Avx512: SumRunAvx512(values + begin, end - begin, reference, s, q); break;
    case VectorIsa::Avx2: SumRunAvx2(values + begin, end - begin, reference, s, q); break;
#endif
    default: SumRunBaseline(values + begin, end - begin, reference, s, q); break;
    }
    sum += ((s[0] + s[1]) + (s[2] + s[3])) + ((s[4] + s[5]) + (s[6] + s[7]));
    squares += ((q[0] + q[1]) + (q[2] + q[3])) + ((q[4] + q[5]) + (q[6] + q[7]));
}

} // namespace

void ClassMoments::AddRow(const float* const* rows, const std::int32_t* labels, std::size_t n) {
    for (std::size_t begin = 0, end = 0; begin < n; begin = end) {
        const std::int32_t label = labels[begin];
        for (end = begin + 1; end < n && labels[end] == label;) ++end;
        if (label <= 0) continue;
        const std::size_t c = static_cast<std::size_t>(label - 1);
        pixels_[c] += static_cast<std::int64_t>(end - begin);
        if (!withMoments_) continue;
        const bool fused = withCovariance_ && bands_ >= 2 && bands_ <= kFusedBands;
        for (std::size_t k = 0; k < bands_; ++k) {
            const std::size_t at = c * bands_ + k;
            SumRun(rows[k], begin, end, reference_[at], sums_[at], squares_[at]);
            if (!withCovariance_ || fused) continue;
            for (std::size_t l = k + 1; l < bands_; ++l)
                CrossRun(rows[k], rows[l], begin, end, reference_[at], reference_[c * bands_ + l],
                         cross_[at * bands_ + l]);
        }
        if (fused) CrossRuns(rows, bands_, begin, end, &reference_[c * bands_], &cross_[c * bands_ * bands_]);
    }
}

void ClassMoments::MergeFrom(ClassMoments& other) {
    for (std::size_t c = 0; c < classes_; ++c) pixels_[c] += other.pixels_[c];
    for (std::size_t i = 0; i < sums_.size(); ++i) {
        sums_[i] += other.sums_[i];
        squares_[i] += other.squares_[i];
    }
    for (std::size_t i = 0; i < cross_.size(); ++i) cross_[i] += other.cross_[i];
    std::fill(other.cross_.begin(), other.cross_.end(), 0.0);
    std::fill(other.pixels_.begin(), other.pixels_.end(), 0);
    std::fill(other.sums_.begin(), other.sums_.end(), 0.0);
    std::fill(other.squares_.begin(), other.squares_.end(), 0.0);
}

std::vector<ClassStatistics> ClassMoments::Finish() const {
    std::vector<ClassStatistics> out(classes_);
    for (std::size_t c = 0; c < classes_; ++c) {
        out[c].pixels = pixels_[c];
        if (!withMoments_) continue;
        const double n = static_cast<double>(pixels_[c]);
        for (std::size_t k = 0; k < bands_; ++k) {
            const std::size_t at = c * bands_ + k;
            const double shift = n > 0 ? sums_[at] / n : 0.0;
            const double variance = n > 0 ? std::max(0.0, squares_[at] / n - shift * shift) : 0.0;
            out[c].mean.push_back(n > 0 ? reference_[at] + shift : std::nan(""));
            out[c].stddev.push_back(n > 0 ? std::sqrt(variance) : std::nan(""));
        }
        if (!withCovariance_) continue;
        // Of the differences from the centre, like the variance: cross / n - shift_k * shift_l.
        out[c].covariance.assign(bands_ * bands_, n > 0 ? 0.0 : std::nan(""));
        for (std::size_t k = 0; k < bands_ && n > 0; ++k) {
            const double shiftK = sums_[c * bands_ + k] / n;
            for (std::size_t l = k; l < bands_; ++l) {
                const double shiftL = sums_[c * bands_ + l] / n;
                const double products = l == k ? squares_[c * bands_ + k] : cross_[(c * bands_ + k) * bands_ + l];
                out[c].covariance[k * bands_ + l] = out[c].covariance[l * bands_ + k] = products / n - shiftK * shiftL;
            }
        }
    }
    return out;
}

} // namespace isodata
