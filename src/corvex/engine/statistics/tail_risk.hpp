#pragma once

#include <limits>
#include <span>

namespace corvex::engine::inline v1 {

/// What the tails of a set of returns are like. All NaN without returns.
struct TailRisk {
    static constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

    double value_at_risk = kUndefined;      ///< the quantile at `share`; a loss is negative
    double expected_shortfall = kUndefined; ///< mean of the lowest floor(share (n - 1)) + 1 returns
    /// |quantile at 1 - share| / |quantile at share|; NaN where the lower one is 0.
    double tail_ratio = kUndefined;
};

/// Historical tail figures, quantiles interpolated linearly between the returns beside them.
///
/// @param returns  fractions; those that are not finite are left out
/// @param share    size of each tail, in (0, 0.5)
/// @throws std::invalid_argument for another share
/// Source: R. J. Hyndman and Y. Fan, "Sample quantiles in statistical packages", The American
/// Statistician 50 (1996), definition 7; C. Acerbi and D. Tasche, "On the coherence of expected
/// shortfall", Journal of Banking and Finance 26 (2002).
TailRisk tail_risk(std::span<const double> returns, double share);

} // namespace corvex::engine::inline v1
