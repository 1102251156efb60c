#pragma once

#include "corvex/engine/series/periods.hpp"

#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// values[i + 1] / values[i] - 1; one shorter than `values`.
std::vector<double> simple_returns(std::span<const double> values);

/// Returns between the ends of consecutive months or years. Where a period is missing there is no
/// return over the hole, and the first period has none since nothing precedes it.
std::vector<double> period_returns(std::span<const double> values, std::span<const Period> periods);

/// Return within one period: from the end of the period before it, or from its own first value
/// where that period has no value.
/// @param index  position in `periods`
double return_within(std::span<const double> values, std::span<const Period> periods,
                     std::size_t index);

/// `values` scaled so that the first present one becomes `base`, written to `out`; NaN stays.
void rebase(std::span<const double> values, double base, std::span<double> out);

} // namespace corvex::engine::inline v1
