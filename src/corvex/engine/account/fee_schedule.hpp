#pragma once

#include "corvex/engine/account/terms.hpp"

#include <algorithm>
#include <cstddef>
#include <span>

namespace corvex::engine::inline v1 {

/// What a table's ratios come to, part by part.
double fee_by_table(std::span<const FeeStep> table, double value);

/// What the commission of an asset's orders is made of, beside a table and the largest ratio.
struct Commission {
    double ratio = 0.0;     ///< of the value, where there is no table
    double minimum = 0.0;   ///< of each order
    double per_share = 0.0; ///< of each share
};

/// The commission of an order: its value at the ratio (or at the table's ratios, part by part) and
/// the amount for each share, at least the minimum, and never above the largest ratio.
///
/// @param value  what the order executes at, positive; 0 pays nothing.
/// @param own    of the asset.
inline double commission(const FeeTerms& terms, double value, double shares,
                         const Commission& own) {
    if (!(value > 0.0)) {
        return 0.0;
    }
    const double fee =
        (terms.table.empty() ? value * own.ratio : fee_by_table(terms.table, value)) +
        own.per_share * shares;
    return std::min(std::max(fee, own.minimum), terms.max_ratio * value);
}

/// The same, with the minimum and the amount for each share that the terms have for all assets.
inline double commission(const FeeTerms& terms, double value, double shares, double ratio) {
    return commission(terms, value, shares, {ratio, terms.minimum, terms.per_share});
}

} // namespace corvex::engine::inline v1
