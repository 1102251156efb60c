#include "corvex/engine/statistics/tail_risk.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(TailRisk, OfFewOrNoReturns) {
    EXPECT_TRUE(std::isnan(tail_risk(std::vector{kNaN}, 0.05).value_at_risk));
    const TailRisk one = tail_risk(std::vector{-0.02}, 0.05);
    EXPECT_EQ(one.value_at_risk, -0.02);
    EXPECT_EQ(one.expected_shortfall, -0.02);
    EXPECT_EQ(one.tail_ratio, 1.0);
    EXPECT_TRUE(std::isnan(tail_risk(std::vector{0.0, 0.0}, 0.05).tail_ratio));
    EXPECT_THROW(tail_risk(std::vector{0.0}, 0.5), std::invalid_argument);
}

} // namespace
} // namespace corvex::engine
