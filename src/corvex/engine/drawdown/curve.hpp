#pragma once

#include <span>

namespace corvex::engine::inline v1 {

/// Distance below the highest value so far, value / running maximum - 1, written to `out`: 0 at a
/// new high, negative below it. A missing value carries the last one; NaN before the first.
/// @throws std::invalid_argument when the lengths differ
void drawdown_curve(std::span<const double> values, std::span<double> out);

} // namespace corvex::engine::inline v1
