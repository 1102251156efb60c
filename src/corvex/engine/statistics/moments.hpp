#pragma once

#include <cstddef>
#include <span>

namespace corvex::engine::inline v1 {

/// What a set of returns is like, per period and not annualised. Figures that too few returns leave
/// undefined are NaN.
struct Moments {
    std::size_t count; ///< returns that are not missing
    double mean;
    double deviation; ///< sample standard deviation (n - 1), from 2 returns on
    double skew;      ///< from 3 returns on
    double kurt;      ///< in excess of the normal distribution's, from 4 returns on
    double best;
    double worst;
    double excess; ///< mean above the target
    /// Root of the mean of min(return - target, 0)^2 over all returns.
    double downside_deviation;
};

/// Two passes, since one pass of raw power sums would lose the digits of small means.
///
/// Skewness and kurtosis are the bias-corrected G1 and G2. What the rounding of the prices alone
/// explains counts as nothing: a curve of constant growth has deviation 0, not 1e-17, and one that
/// grows at the target has neither an excess nor a downside.
///
/// @param returns  fractions; NaN = missing, left out
/// @param target   return per period below which a period counts as a loss
/// Source: D. N. Joanes and C. A. Gill, "Comparing measures of sample skewness and kurtosis",
/// The Statistician 47 (1998).
Moments moments(std::span<const double> returns, double target);

} // namespace corvex::engine::inline v1
