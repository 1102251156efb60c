#include "corvex/engine/series/curve.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(PresentCurve, DropsMissingValuesAndRemembersTheirRows) {
    const std::vector<double> values{kNaN, 1.0, kNaN, 3.0};
    const std::vector<Nanos> times{10, 20, 30, 40};
    const PresentCurve curve(values, times);
    ASSERT_EQ(curve.size(), 2U);
    EXPECT_EQ(curve.values()[1], 3.0);
    EXPECT_EQ(curve.times()[1], 40);
    EXPECT_EQ(curve.row(0), 1U);
    EXPECT_EQ(curve.row(1), 3U);
}

TEST(PresentCurve, ViewsACompleteCurveWithoutACopy) {
    const std::vector<double> values{1.0, 2.0};
    const std::vector<Nanos> times{10, 20};
    const PresentCurve curve(values, times);
    EXPECT_EQ(curve.values().data(), values.data());
    EXPECT_EQ(curve.row(1), 1U);
}

TEST(PresentCurve, RefusesInfiniteValuesAndUnequalLengths) {
    const std::vector<double> values{1.0, std::numeric_limits<double>::infinity()};
    EXPECT_THROW(PresentCurve(values, std::vector<Nanos>{1, 2}), std::invalid_argument);
    EXPECT_THROW(PresentCurve(values, std::vector<Nanos>{1}), std::invalid_argument);
}

TEST(FirstUnordered, FindsARepeatedAndAnEarlierTime) {
    EXPECT_EQ(first_unordered(std::vector<Nanos>{1, 2, 2, 3}), 2);
    EXPECT_EQ(first_unordered(std::vector<Nanos>{5, 4}), 1);
    EXPECT_EQ(first_unordered(std::vector<Nanos>{1, 2, 3}), -1);
    EXPECT_EQ(first_unordered({}), -1);
}

} // namespace
} // namespace corvex::engine
