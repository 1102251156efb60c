#include "corvex/engine/series/returns.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(PeriodReturns, HasNoReturnOverAHole) {
    const std::vector<double> values{100.0, 110.0, 121.0, 60.5, 66.55};
    const std::vector<Period> months{{1, 0, 1}, {2, 2, 2}, {5, 3, 3}, {6, 4, 4}};
    const std::vector<double> returns = period_returns(values, months);
    ASSERT_EQ(returns.size(), 2U);
    EXPECT_NEAR(returns[0], 0.1, 1e-15);
    EXPECT_NEAR(returns[1], 0.1, 1e-15);
}

TEST(ReturnWithin, CountsFromTheOwnFirstValueAfterAHole) {
    const std::vector<double> values{100.0, 110.0, 50.0, 55.0};
    const std::vector<Period> months{{1, 0, 1}, {4, 2, 3}};
    EXPECT_NEAR(return_within(values, months, 0), 0.1, 1e-15);
    EXPECT_NEAR(return_within(values, months, 1), 0.1, 1e-15);
    EXPECT_NEAR(return_within(values, std::vector<Period>{{1, 0, 1}, {2, 2, 3}}, 1), -0.5, 1e-15);
}

TEST(Rebase, DividesByTheFirstPresentValueAndKeepsHoles) {
    std::vector<double> out(4);
    rebase(std::vector<double>{kNaN, 4.0, kNaN, 5.0}, 100.0, out);
    EXPECT_TRUE(std::isnan(out[0]) && std::isnan(out[2]));
    EXPECT_EQ(out[1], 100.0);
    EXPECT_EQ(out[3], 125.0);
    EXPECT_THROW(rebase(std::vector<double>{1.0}, 100.0, out), std::invalid_argument);
}

} // namespace
} // namespace corvex::engine
