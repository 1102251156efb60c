#pragma once

#include <cstddef>
#include <span>

namespace corvex::engine {

/// How many assets a table of weights holds at once.
struct HoldingCounts {
    double mean = 0.0;       ///< over all dates
    std::size_t largest = 0; ///< on one date
};

/// What lies side by side in the memory of a table.
enum class Layout {
    kDates,  ///< a date's weights
    kAssets, ///< an asset's weights
};

/// @param weights  dates x assets; NaN and 0 = not held
/// @param assets   columns of the table; a table without columns holds nothing
/// @param layout   how the table lies in memory: either is read without a copy
/// @throws std::invalid_argument when the weights do not fill whole rows
HoldingCounts holding_counts(std::span<const double> weights, std::size_t assets, Layout layout);

} // namespace corvex::engine
