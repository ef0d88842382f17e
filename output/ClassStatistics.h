// What each class of a labelling holds: its pixel count and, when asked
// for, the mean and the standard deviation of every band over its pixels,
// gathered row by row as the labelling pass goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace isodata {

struct LabelCenters;

struct ClassStatistics {
    std::int64_t pixels = 0;
    std::vector<double> mean, stddev;  // per band; empty unless asked for
    std::vector<double> covariance;    // bands x bands, row-major, over n; empty unless asked for
};

class ClassMoments {
public:
    // Classes 1..K of centers; withMoments adds the means and deviations,
    // withCovariance (with withMoments) the covariance of every band pair.
    ClassMoments(const LabelCenters& centers, bool withMoments, bool withCovariance = false);

    // One labelled row: labels[x] is the class of the pixel whose band
    // values are rows[0..B-1][x]; 0 (unclassified) counts nowhere.
    void AddRow(const float* const* rows, const std::int32_t* labels, std::size_t n);

    // Adds what other gathered (over the same centres) and empties it. Rows
    // gathered apart and merged in row order give the same sums whoever
    // gathered them.
    void MergeFrom(ClassMoments& other);

    // Entry k is class k + 1. Deviations divide by the pixel count.
    std::vector<ClassStatistics> Finish() const;

private:
    std::size_t classes_, bands_;
    bool withMoments_, withCovariance_;
    std::vector<double> reference_;         // [class * bands + band]: the class centre
    std::vector<std::int64_t> pixels_;      // [class]
    std::vector<double> sums_, squares_;    // [class * bands + band], of value - reference
    std::vector<double> cross_;             // [(class * bands + k) * bands + l], k < l: products of both
};

} // namespace isodata
