#include "corvex/engine/metrics/holding_counts.hpp"
#include "corvex/engine/metrics/table_cells.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(HoldingCounts, CountBothSidesAndNoHoles) {
    const std::vector by_row{0.5, -0.5, 0.0, kNaN, 1.0, 0.0, 1.0, 0.0, 0.0, 0.1};
    const std::vector by_column{0.5, 0.0, -0.5, 1.0, 0.0, 0.0, kNaN, 0.0, 1.0, 0.1};
    for (const HoldingCounts& counts : {holding_counts({by_row, 2, 5, Layout::kRows}),
                                        holding_counts({by_column, 2, 5, Layout::kColumns})}) {
        EXPECT_EQ(counts.mean, 2.5);
        EXPECT_EQ(counts.largest, 3U);
    }
    EXPECT_EQ(holding_counts({{}, 3, 0, Layout::kRows}).mean, 0.0);
}

TEST(TableCells, AreReadInEitherLayoutAndMissingOutsideOfIt) {
    const std::vector<std::int64_t> rows{1, 0, -1, 1};
    const std::vector<std::int64_t> columns{2, 0, 1, -1};
    for (const auto layout : {Layout::kRows, Layout::kColumns}) {
        const std::vector values = layout == Layout::kRows
                                       ? std::vector{1.0, 2.0, 3.0, 4.0, 5.0, 6.0}
                                       : std::vector{1.0, 4.0, 2.0, 5.0, 3.0, 6.0};
        const std::vector<double> cells = table_cells({values, 2, 3, layout}, rows, columns);
        EXPECT_EQ(cells[0], 6.0);
        EXPECT_EQ(cells[1], 1.0);
        EXPECT_TRUE(std::isnan(cells[2]) && std::isnan(cells[3]));
        EXPECT_THROW(table_cells({values, 2, 3, layout}, columns, rows), std::invalid_argument);
    }
}

TEST(RowsOfTimes, AreExactWithinDaysAndOverGaps) {
    // Days of 10 units that begin at 3: two dates on the first, none on the second.
    const std::vector<std::int64_t> dates{3, 7, 24, 33};
    const std::vector<std::int64_t> times{33, 3, 7, 8, 14, 24, 2, 34, INT64_MIN, INT64_MAX};
    const std::vector<std::int64_t> expected{3, 0, 1, -1, -1, 2, -1, -1, -1, -1};
    EXPECT_EQ(rows_of_times(dates, times, 10), expected);
    EXPECT_EQ(rows_of_times({}, std::vector<std::int64_t>{1}, 10).front(), -1);
    EXPECT_THROW(rows_of_times(dates, times, 0), std::invalid_argument);
}

} // namespace
} // namespace corvex::engine
