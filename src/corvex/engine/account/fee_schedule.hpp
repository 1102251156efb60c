#pragma once

#include "corvex/engine/account/terms.hpp"

namespace corvex::engine::inline v1 {

/// The commission of an order: its value at the ratio (or at the table's ratios, part by part) and
/// the amount for each share, at least the minimum, and never above the largest ratio.
///
/// @param value  what the order executes at, positive; 0 pays nothing.
/// @param ratio  of the asset, where there is no table.
double commission(const FeeTerms& terms, double value, double shares, double ratio);

} // namespace corvex::engine::inline v1
