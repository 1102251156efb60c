#include "corvex/engine/metrics/benchmark_fit.hpp"
#include "corvex/engine/metrics/holding_counts.hpp"
#include "corvex/engine/metrics/table_cells.hpp"
#include "corvex/engine/metrics/tail_risk.hpp"
#include "corvex/engine/metrics/trade_figures.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(TailRisk, InterpolatesBetweenTheOrderedReturns) {
    // 0.01 to 0.31 in disorder with a hole: the 5 % quantile lies halfway between rank 1 and 2.
    std::vector<double> returns{kNaN};
    for (int i = 0; i < 31; ++i) {
        returns.push_back(0.01 * ((i * 7) % 31 + 1));
    }
    const TailRisk found = tail_risk(returns, 0.05);
    EXPECT_NEAR(found.value_at_risk, 0.025, 1e-15);
    EXPECT_NEAR(found.expected_shortfall, 0.015, 1e-15);
    EXPECT_NEAR(found.tail_ratio, 0.295 / 0.025, 1e-12);
}

TEST(TailRisk, OfFewOrNoReturns) {
    EXPECT_TRUE(std::isnan(tail_risk(std::vector{kNaN}, 0.05).value_at_risk));
    const TailRisk one = tail_risk(std::vector{-0.02}, 0.05);
    EXPECT_EQ(one.value_at_risk, -0.02);
    EXPECT_EQ(one.expected_shortfall, -0.02);
    EXPECT_EQ(one.tail_ratio, 1.0);
    EXPECT_TRUE(std::isnan(tail_risk(std::vector{0.0, 0.0}, 0.05).tail_ratio));
    EXPECT_THROW(tail_risk(std::vector{0.0}, 0.5), std::invalid_argument);
}

TEST(BenchmarkFit, FindsTheLineThatTheReturnsLieOn) {
    std::vector<double> strategy{1.0};
    std::vector<double> benchmark{50.0};
    for (const double step : {0.01, -0.02, 0.03, 0.005}) {
        benchmark.push_back(benchmark.back() * (1.0 + step));
        strategy.push_back(strategy.back() * (1.0 + 0.001 + 1.5 * step));
    }
    benchmark.push_back(kNaN); // without a benchmark a return does not count
    strategy.push_back(99.0);
    const BenchmarkFit fit = benchmark_fit(strategy, benchmark, 252.0);
    EXPECT_EQ(fit.pairs, 4U);
    EXPECT_NEAR(fit.beta, 1.5, 1e-12);
    EXPECT_NEAR(fit.alpha, std::pow(1.001, 252.0) - 1.0, 1e-12);
    const std::vector<double> still(strategy.size(), 3.0);
    EXPECT_TRUE(std::isnan(benchmark_fit(strategy, still, 252.0).beta));
    EXPECT_THROW(benchmark_fit(strategy, std::vector{1.0}, 252.0), std::invalid_argument);
}

TEST(TradeFigures, LeaveOpenTradesOut) {
    const TradeFigures figures = trade_figures(std::vector{0.1, kNaN, -0.2, 0.0});
    EXPECT_EQ(figures.count, 3U);
    EXPECT_DOUBLE_EQ(figures.win_rate, 1.0 / 3.0);
    EXPECT_NEAR(figures.expectancy, -0.1 / 3.0, 1e-15);
    EXPECT_NEAR(figures.profit_factor, 0.5, 1e-15);
    EXPECT_TRUE(std::isnan(trade_figures(std::vector{0.1}).profit_factor));
    EXPECT_EQ(trade_figures({}).win_rate, 0.0);
    EXPECT_TRUE(std::isnan(trade_figures({}).expectancy));
}

TEST(HoldingCounts, CountBothSidesAndNoHoles) {
    const std::vector by_row{0.5, -0.5, 0.0, kNaN, 1.0, 0.0};
    const std::vector by_column{0.5, kNaN, -0.5, 1.0, 0.0, 0.0};
    for (const HoldingCounts& counts : {holding_counts({by_row, 2, 3, Layout::kRows}),
                                        holding_counts({by_column, 2, 3, Layout::kColumns})}) {
        EXPECT_EQ(counts.mean, 1.5);
        EXPECT_EQ(counts.largest, 2U);
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
