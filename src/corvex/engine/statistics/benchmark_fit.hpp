#pragma once

#include <cstddef>
#include <limits>
#include <span>

namespace corvex::engine::inline v1 {

/// A strategy's returns against its benchmark's.
struct BenchmarkFit {
    static constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

    std::size_t pairs = 0; ///< returns that both curves have
    double alpha = kUndefined;
    double beta = kUndefined;
};

/// Fits returns r = a + beta b by least squares over the bars on which both curves have a return.
///
/// beta  = cov(r, b) / var(b)
/// alpha = (1 + mean(r) - beta mean(b))^n - 1, Jensen's alpha per year for a risk-free rate of 0,
///         with n bars a year
/// Both are NaN for fewer than two pairs and for a benchmark that does not move.
///
/// @param strategy          curve of values
/// @param benchmark         curve of values on the same dates
/// @param periods_per_year  bars in a year, > 0
/// @throws std::invalid_argument for curves of different length, or periods that are not positive
/// Source: M. C. Jensen, "The performance of mutual funds in the period 1945-1964", Journal of
/// Finance 23 (1968).
BenchmarkFit benchmark_fit(std::span<const double> strategy, std::span<const double> benchmark,
                           double periods_per_year);

} // namespace corvex::engine::inline v1
