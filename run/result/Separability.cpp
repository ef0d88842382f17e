// The Jeffries-Matusita distance: with S = (Sa + Sb) / 2 and d = ma - mb,
// the Bhattacharyya distance is
//     B = d' S^-1 d / 8 + ln(det S / sqrt(det Sa det Sb)) / 2
// and JM = 2 (1 - exp(-B)). The inverse and the determinants come from
// Cholesky factors, which also tell a matrix that is not positive definite.
#include "Separability.h"

#include <cmath>
#include <cstddef>
#include <limits>

namespace isodata_run {
namespace {

// The lower Cholesky factor of the n x n matrix a, in place; false when a is
// not positive definite.
bool Cholesky(std::vector<double>& a, std::size_t n) {
    for (std::size_t j = 0; j < n; ++j) {
        double diagonal = a[j * n + j];
        for (std::size_t k = 0; k < j; ++k) diagonal -= a[j * n + k] * a[j * n + k];
        if (!(diagonal > 0.0)) return false;
        const double root = std::sqrt(diagonal);
        a[j * n + j] = root;
        for (std::size_t i = j + 1; i < n; ++i) {
            double value = a[i * n + j];
            for (std::size_t k = 0; k < j; ++k) value -= a[i * n + k] * a[j * n + k];
            a[i * n + j] = value / root;
        }
    }
    return true;
}

// ln det of a matrix from its Cholesky factor.
double LogDeterminant(const std::vector<double>& factor, std::size_t n) {
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i) sum += std::log(factor[i * n + i]);
    return 2.0 * sum;
}

} // namespace

double JeffriesMatusita(const std::vector<double>& meanA, const std::vector<double>& covarianceA,
                        const std::vector<double>& meanB, const std::vector<double>& covarianceB) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    const std::size_t n = meanA.size();
    if (n == 0 || meanB.size() != n || covarianceA.size() != n * n || covarianceB.size() != n * n) return none;
    std::vector<double> a = covarianceA, b = covarianceB, s(n * n);
    for (std::size_t i = 0; i < n * n; ++i) s[i] = 0.5 * (covarianceA[i] + covarianceB[i]);
    if (!Cholesky(a, n) || !Cholesky(b, n) || !Cholesky(s, n)) return none;
    // d' S^-1 d = |L^-1 d|^2 with S = L L'.
    std::vector<double> y(n);
    double quadratic = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        double value = meanA[i] - meanB[i];
        for (std::size_t k = 0; k < i; ++k) value -= s[i * n + k] * y[k];
        y[i] = value / s[i * n + i];
        quadratic += y[i] * y[i];
    }
    const double bhattacharyya =
        quadratic / 8.0 + 0.5 * (LogDeterminant(s, n) - 0.5 * (LogDeterminant(a, n) + LogDeterminant(b, n)));
    return 2.0 * (1.0 - std::exp(-bhattacharyya));
}

std::vector<std::vector<double>> SeparabilityMatrix(const std::vector<std::vector<double>>& means,
                                                    const std::vector<std::vector<double>>& covariances) {
    const std::size_t k = means.size();
    std::vector<std::vector<double>> m(k, std::vector<double>(k, 0.0));
    for (std::size_t i = 0; i < k; ++i)
        for (std::size_t j = i + 1; j < k; ++j)
            m[i][j] = m[j][i] = JeffriesMatusita(means[i], covariances[i], means[j], covariances[j]);
    return m;
}

} // namespace isodata_run
