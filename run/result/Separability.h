// How well two classes separate, from their means and covariances: the
// Jeffries-Matusita distance of two normal distributions, the measure
// remote sensing has long used to judge training classes. It runs from 0
// (the same distribution) to 2 (no overlap); pairs below 1.9 are commonly
// taken as hard to separate.
#pragma once

#include <string>
#include <vector>

namespace isodata_run {

inline constexpr const char* kSeparabilityMeasure = "Jeffries-Matusita distance";
inline constexpr double kSeparabilityMaximum = 2.0;
inline constexpr double kSeparabilityThreshold = 1.9;

// With B bands: means of B values, covariances of B x B (row-major, divided
// by the pixel count). NaN when a covariance is not positive definite (a
// class with a constant band, or too few pixels to span every band).
double JeffriesMatusita(const std::vector<double>& meanA, const std::vector<double>& covarianceA,
                        const std::vector<double>& meanB, const std::vector<double>& covarianceB);

// Every pair of the classes given (entry k its mean and covariance): a
// symmetric matrix, 0 on the diagonal.
std::vector<std::vector<double>> SeparabilityMatrix(const std::vector<std::vector<double>>& means,
                                                    const std::vector<std::vector<double>>& covariances);

} // namespace isodata_run
