#include "corvex/engine/series/periods.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace corvex::engine {
namespace {

Nanos at(int year, int month, int day) { return day_from_civil(year, month, day) * kNanosPerDay; }

TEST(MonthPeriods, SkipsMonthsWithoutARowAndKeepsTheBoundaries) {
    const std::vector<Nanos> times{at(1969, 12, 30), at(1969, 12, 31), at(1970, 1, 1) - 1,
                                   at(1970, 1, 1),   at(1970, 4, 15),  at(1971, 2, 1)};
    const std::vector<Period> months = month_periods(times);
    ASSERT_EQ(months.size(), 4U);
    EXPECT_EQ(months[0].number, 1969 * 12 + 11);
    EXPECT_EQ(months[0].last, 2U);
    EXPECT_EQ(months[1].number, 1970 * 12);
    EXPECT_EQ(months[2].first, 4U);

    const std::vector<Period> years = year_periods(months);
    ASSERT_EQ(years.size(), 3U);
    EXPECT_EQ(years[1].number, 1970);
    EXPECT_EQ(years[1].first, 3U);
    EXPECT_EQ(years[1].last, 4U);
    EXPECT_TRUE(month_periods({}).empty());
}

TEST(DayEnds, GivesTheLastRowOfEachDay) {
    const Nanos day = at(2024, 3, 1);
    const std::vector<Nanos> times{day, day + 5, day + kNanosPerDay - 1, day + kNanosPerDay};
    EXPECT_EQ(day_ends(times), (std::vector<std::size_t>{2, 3}));
}

TEST(MonthsBefore, ShortensToTheLastDayOfTheMonth) {
    EXPECT_EQ(months_before(at(2024, 5, 31) + 7, 3), at(2024, 2, 29) + 7);
    EXPECT_EQ(months_before(at(2024, 2, 29), 12), at(2023, 2, 28));
    EXPECT_EQ(months_before(at(2024, 1, 15), 1), at(2023, 12, 15));
    EXPECT_EQ(month_end_before(at(2010, 9, 30), 6), at(2010, 3, 31));
}

TEST(IsLastInMonth, LooksForADayThatCouldStillHaveABar) {
    EXPECT_TRUE(is_last_in_month(at(2009, 10, 30), false)); // a Friday; the 31st is a Saturday
    EXPECT_FALSE(is_last_in_month(at(2009, 10, 30), true));
    EXPECT_FALSE(is_last_in_month(at(2009, 10, 29), false));
    EXPECT_TRUE(is_last_in_month(at(2009, 12, 31), true));
}

} // namespace
} // namespace corvex::engine
