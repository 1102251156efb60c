#include "corvex/engine/metrics/holding_counts.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

using Counts = std::vector<std::int64_t>;

/// 1 for a position, 0 for none, as wide as the weight, so that loops need no branch and no change
/// of width. NaN compares false with everything, so it needs no test of its own.
std::int64_t held(double weight) { return static_cast<std::int64_t>(std::abs(weight) > 0.0); }

CORVEX_VECTOR_CLONES
Counts count_along_rows(const TableView& weights) {
    Counts counts(weights.rows);
    for (std::size_t date = 0; date < weights.rows; ++date) {
        for (const double weight :
             weights.values.subspan(date * weights.columns, weights.columns)) {
            counts[date] += held(weight);
        }
    }
    return counts;
}

/// Four columns at a time, so that the counts are read and written a quarter as often.
CORVEX_VECTOR_CLONES
Counts count_along_columns(const TableView& weights) {
    constexpr std::size_t kTogether = 4;
    const std::size_t rows = weights.rows;
    Counts counts(rows);
    const double* column = weights.values.data();
    std::size_t asset = 0;
    for (; asset + kTogether <= weights.columns; asset += kTogether, column += kTogether * rows) {
        for (std::size_t date = 0; date < rows; ++date) {
            counts[date] += (held(column[date]) + held(column[rows + date])) +
                            (held(column[2 * rows + date]) + held(column[3 * rows + date]));
        }
    }
    for (; asset < weights.columns; ++asset, column += rows) {
        for (std::size_t date = 0; date < rows; ++date) {
            counts[date] += held(column[date]);
        }
    }
    return counts;
}

} // namespace

HoldingCounts holding_counts(const TableView& weights) {
    if (weights.values.empty()) {
        return {};
    }
    const Counts counts =
        weights.layout == Layout::kRows ? count_along_rows(weights) : count_along_columns(weights);
    const auto total = std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
    return {static_cast<double>(total) / static_cast<double>(counts.size()),
            static_cast<std::size_t>(*std::max_element(counts.begin(), counts.end()))};
}

} // namespace corvex::engine::inline v1
