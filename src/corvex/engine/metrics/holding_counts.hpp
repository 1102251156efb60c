#pragma once

#include "corvex/engine/core/table.hpp"

#include <cstddef>

namespace corvex::engine::inline v1 {

/// How many assets a table of weights holds at once.
struct HoldingCounts {
    double mean = 0.0;       ///< over all dates
    std::size_t largest = 0; ///< on one date
};

/// @param weights  dates x assets; NaN and 0 = not held. A table without assets holds nothing.
HoldingCounts holding_counts(const TableView& weights);

} // namespace corvex::engine::inline v1
