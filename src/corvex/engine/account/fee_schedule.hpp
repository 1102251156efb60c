#pragma once

#include "corvex/engine/account/terms.hpp"

#include <algorithm>
#include <cstddef>
#include <span>

namespace corvex::engine::inline v1 {

/// What a table's ratios come to, part by part.
double fee_by_table(std::span<const FeeStep> table, double value);

/// The commission of an order: its value at the ratio (or at the table's ratios, part by part) and
/// the amount for each share, at least the minimum, and never above the largest ratio.
///
/// @param value  what the order executes at, positive; 0 pays nothing.
/// @param ratio  of the asset, where there is no table.
inline double commission(const FeeTerms& terms, double value, double shares, double ratio) {
    if (!(value > 0.0)) {
        return 0.0;
    }
    const double fee = (terms.table.empty() ? value * ratio : fee_by_table(terms.table, value)) +
                       terms.per_share * shares;
    return std::min(std::max(fee, terms.minimum), terms.max_ratio * value);
}

} // namespace corvex::engine::inline v1
