#pragma once

#include <span>

namespace corvex::engine::inline v1 {

/// The mean block length for a stationary bootstrap of the mean that a series' autocorrelation
/// asks for; at least 1, at most min(3 sqrt(n), n / 3) rounded up.
///
/// 1 for fewer than four values or values that are all the same: there is nothing to keep
/// together.
///
/// @param values  none missing
/// Source: D. N. Politis and H. White, Econometric Reviews 23 (2004), with the correction by
/// A. Patton, D. N. Politis and H. White, Econometric Reviews 28 (2009).
double automatic_block_length(std::span<const double> values);

} // namespace corvex::engine::inline v1
