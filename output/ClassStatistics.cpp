// Per-class moments of the labelled pixels.
//
// Values are added as their difference from the class centre, so that the
// sums stay small beside the values and the variance loses no digits to
// cancellation; mean = centre + sum / n, variance = squares / n - (sum / n)^2.
// A row is taken in runs of one class: each run is summed band by band in
// four interleaved partial sums (contiguous, no dependence between pixels)
// and added to its class once, which keeps the cost near one pass over the
// values however the classes lie.
#include "ClassStatistics.h"

#include "ResultRaster.h"

#include <algorithm>
#include <cmath>

namespace isodata {

ClassMoments::ClassMoments(const LabelCenters& centers, bool withMoments)
    : classes_(centers.clusters),
      bands_(centers.bands),
      withMoments_(withMoments),
      reference_(centers.values.begin(), centers.values.end()),
      pixels_(centers.clusters, 0),
      sums_(withMoments ? centers.values.size() : 0, 0.0),
      squares_(sums_.size(), 0.0) {}

namespace {

// Sum and sum of squares of values[x] - reference over x in [begin, end).
void SumRun(const float* values, std::size_t begin, std::size_t end, double reference, double& sum,
            double& squares) {
    double s[4] = {0, 0, 0, 0}, q[4] = {0, 0, 0, 0};
    std::size_t x = begin;
    for (; x + 4 <= end; x += 4) {
        for (int j = 0; j < 4; ++j) {
            const double d = static_cast<double>(values[x + static_cast<std::size_t>(j)]) - reference;
            s[j] += d;
            q[j] += d * d;
        }
    }
    for (; x < end; ++x) {
        const double d = static_cast<double>(values[x]) - reference;
        s[0] += d;
        q[0] += d * d;
    }
    sum += (s[0] + s[1]) + (s[2] + s[3]);
    squares += (q[0] + q[1]) + (q[2] + q[3]);
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
        for (std::size_t k = 0; k < bands_; ++k) {
            const std::size_t at = c * bands_ + k;
            SumRun(rows[k], begin, end, reference_[at], sums_[at], squares_[at]);
        }
    }
}

void ClassMoments::MergeFrom(ClassMoments& other) {
    for (std::size_t c = 0; c < classes_; ++c) pixels_[c] += other.pixels_[c];
    for (std::size_t i = 0; i < sums_.size(); ++i) {
        sums_[i] += other.sums_[i];
        squares_[i] += other.squares_[i];
    }
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
    }
    return out;
}

} // namespace isodata
