#include "corvex/engine/statistics/return_table.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace corvex::engine {
namespace {

Nanos at(int year, int month, int day) { return day_from_civil(year, month, day) * kNanosPerDay; }

TEST(ReturnTable, LeavesAHoleMissingAndTheYearWhole) {
    const std::vector<Nanos> times{at(2023, 11, 28), at(2023, 11, 29), at(2023, 12, 28),
                                   at(2023, 12, 29), at(2024, 1, 30),  at(2024, 1, 31),
                                   at(2024, 4, 29),  at(2024, 4, 30)};
    const std::vector<double> values{100, 110, 100, 121, 133.1, 133.1, 266.2, 133.1};
    const std::vector<YearReturns> table = return_table(values, times);
    ASSERT_EQ(table.size(), 2U);
    EXPECT_NEAR(table[0].months[10], 0.1, 1e-14); // from the curve's first value
    EXPECT_NEAR(table[0].months[11], 0.1, 1e-14);
    EXPECT_NEAR(table[0].ytd, 0.21, 1e-14);
    EXPECT_NEAR(table[1].months[0], 0.1, 1e-14);
    EXPECT_TRUE(std::isnan(table[1].months[1]) && std::isnan(table[1].months[2]));
    EXPECT_NEAR(table[1].months[3], -0.5, 1e-14); // from its own first value
    EXPECT_NEAR(table[1].ytd, 0.1, 1e-14);        // of the values, not of the months
    EXPECT_TRUE(return_table({}, {}).empty());
}

TEST(ReturnTable, OfQuarterlyBarsHasYearsOnly) {
    const std::vector<Nanos> times{at(2023, 12, 31), at(2024, 3, 31), at(2024, 6, 30)};
    const std::vector<YearReturns> table = return_table(std::vector<double>{1, 2, 3}, times);
    EXPECT_TRUE(std::isnan(table[1].months[2]));
    EXPECT_NEAR(table[1].ytd, 2.0, 1e-14);
}

} // namespace
} // namespace corvex::engine
