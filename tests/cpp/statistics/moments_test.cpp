#include "corvex/engine/statistics/moments.hpp"
#include "corvex/engine/statistics/period_figures.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Worked by hand: 1, 2, 4, 5, 13 in percent has mean 5, sums of powers of the distances 90, 420 and
// 4434, so G1 = 5 * sqrt(4) / 3 * 420 / 90^1.5 and
// G2 = 6 * 5 * 4 / (3 * 2) * 4434 / 90^2 - 3 * 4^2 / (3 * 2).
TEST(Moments, MatchAHandComputedSample) {
    const Moments found = moments(std::vector<double>{0.01, 0.13, kNaN, 0.02, 0.05, 0.04}, 0.03);
    EXPECT_EQ(found.count, 5U);
    EXPECT_NEAR(found.mean, 0.05, 1e-15);
    EXPECT_NEAR(found.deviation, std::sqrt(90.0 / 4) / 100, 1e-15);
    EXPECT_NEAR(found.skew, 5 * 2.0 / 3 * 420 / std::pow(90.0, 1.5), 1e-12);
    EXPECT_NEAR(found.kurt, 20.0 * 4434 / 8100 - 8, 1e-12);
    EXPECT_EQ(found.best, 0.13);
    EXPECT_EQ(found.worst, 0.01);
    EXPECT_NEAR(found.downside_deviation, std::sqrt((4.0 + 1.0) / 5) / 100, 1e-15);
}

TEST(Moments, LeaveUndefinedWhatTooFewReturnsCannotTell) {
    const Moments one = moments(std::vector<double>{0.01}, 0.0);
    EXPECT_EQ(one.mean, 0.01);
    EXPECT_TRUE(std::isnan(one.deviation));
    EXPECT_TRUE(std::isnan(moments(std::vector<double>{0.01, 0.02}, 0.0).skew));
    EXPECT_TRUE(std::isnan(moments(std::vector<double>{0.01, 0.02, 0.03}, 0.0).kurt));
    EXPECT_EQ(moments(std::vector<double>{kNaN}, 0.0).count, 0U);
}

TEST(Moments, CountRoundingAsNoDispersion) {
    std::vector<double> returns;
    for (int i = 0; i < 100; ++i) {
        returns.push_back(std::pow(1.001, i + 1) / std::pow(1.001, i) - 1.0);
    }
    const Moments found = moments(returns, 0.0);
    EXPECT_EQ(found.deviation, 0.0);
    EXPECT_TRUE(std::isnan(found.skew) && std::isnan(found.kurt));
    const PeriodFigures figures = period_figures(returns, 0.0, 252.0);
    EXPECT_TRUE(std::isnan(figures.sharpe));
    EXPECT_TRUE(std::isinf(figures.sortino));
}

TEST(PeriodFigures, TakeTheRisklessReturnOfOnePeriodOff) {
    // 21 % a year is 10 % in each of two periods, which leaves 0.1 and -0.2 of 0.2 and -0.1.
    const PeriodFigures figures = period_figures(std::vector<double>{0.2, -0.1}, 0.21, 2.0);
    EXPECT_NEAR(figures.mean, 0.1, 1e-15);
    EXPECT_NEAR(figures.vol, 0.3, 1e-15);
    EXPECT_NEAR(figures.sharpe, -0.05 / (0.3 / std::sqrt(2.0)) * std::sqrt(2.0), 1e-12);
    EXPECT_NEAR(figures.sortino, -0.05 / std::sqrt(0.04 / 2) * std::sqrt(2.0), 1e-12);
    EXPECT_THROW(period_figures({}, -1.0, 252.0), std::invalid_argument);
    EXPECT_THROW(period_figures({}, kNaN, 252.0), std::invalid_argument);
    EXPECT_THROW(period_figures({}, 0.0, 0.0), std::invalid_argument);
}

} // namespace
} // namespace corvex::engine
