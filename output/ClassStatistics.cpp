// Per-class moments of the labelled pixels.
//
// Values are added as their difference from the class centre, so that the
// sums stay small beside the values and the variance loses no digits to
// cancellation; mean = centre + sum / n, variance = squares / n - (sum / n)^2.
// A row is gone through band by band, so each band's sums see the pixels in
// row order.
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

void ClassMoments::AddRow(const float* const* rows, const std::int32_t* labels, std::size_t n) {
    for (std::size_t x = 0; x < n; ++x)
        if (labels[x] > 0) ++pixels_[static_cast<std::size_t>(labels[x] - 1)];
    if (!withMoments_) return;
    for (std::size_t k = 0; k < bands_; ++k) {
        const float* row = rows[k];
        for (std::size_t x = 0; x < n; ++x) {
            if (labels[x] <= 0) continue;
            const std::size_t at = static_cast<std::size_t>(labels[x] - 1) * bands_ + k;
            const double d = static_cast<double>(row[x]) - reference_[at];
            sums_[at] += d;
            squares_[at] += d * d;
        }
    }
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
