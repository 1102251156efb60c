#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// A table of weights as a user gives it, rows x assets, in any order in memory: numbers, or true
/// and false for assets that share a row equally.
template <typename Value>
struct WeightView {
    const Value* data;
    std::ptrdiff_t row_step;   ///< from one row to the next, in numbers
    std::ptrdiff_t asset_step; ///< from one asset to the next
    std::size_t rows;
    std::size_t assets;
};

/// How weights become targets.
struct TargetRules {
    double limit = 0.0;        ///< largest absolute weight; infinity for none
    bool leverage = false;     ///< rows whose absolute sum is above 1 are left alone
    bool only_changes = false; ///< a row with the targets of the one before is left out
};

struct TargetRows {
    std::vector<double> targets;    ///< kept rows x assets
    std::vector<std::int64_t> kept; ///< which of the rows that were asked for
    std::vector<double> gross;      ///< the absolute sum of each row that was asked for
};

/// Reads target weights: what is missing is 0, true is 1, a row whose absolute sum is above 1 is
/// scaled to 1, at last each weight is cut to the limit. With `only_changes` rows of zeros at the
/// beginning are left out, too.
///
/// @throws std::invalid_argument for a row outside the table, or a negative limit
TargetRows read_targets(const WeightView<double>& weights, std::span<const std::int64_t> rows,
                        const TargetRules& rules);
TargetRows read_targets(const WeightView<bool>& weights, std::span<const std::int64_t> rows,
                        const TargetRules& rules);

} // namespace corvex::engine::inline v1
