#pragma once

#include <cstddef>
#include <span>

namespace corvex::engine {

/// How many assets a table of weights holds at once.
struct HoldingCounts {
    double mean = 0.0;       ///< over all rows
    std::size_t largest = 0; ///< in one row
};

/// @param weights  dates x assets, row by row; NaN and 0 = not held
/// @param assets   columns of the table; a table without columns holds nothing
/// @throws std::invalid_argument when the weights do not fill whole rows
HoldingCounts holding_counts(std::span<const double> weights, std::size_t assets);

} // namespace corvex::engine
