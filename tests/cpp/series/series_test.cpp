#include "corvex/engine/series/bars.hpp"
#include "corvex/engine/series/periods.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace corvex::engine {
namespace {

constexpr Nanos kHour = 3600 * kNanosPerSecond;

Nanos on(int year, int month, int day, Nanos time = 0) {
    return start_of_day(day_from_civil(year, month, day)) + time;
}

/// Days from Monday the first of January 2024 on; those with the numbers left out are missing.
std::vector<Nanos> days(int count, bool weekends, int every = 1) {
    std::vector<Nanos> times;
    for (int day = 0; day < count; day += every) {
        if (weekends || day % 7 < 5) {
            times.push_back(on(2024, 1, 1 + day));
        }
    }
    return times;
}

TEST(Bars, AreToldByTheUsualGap) {
    const auto told = [](const std::vector<Nanos>& times) {
        return infer_convention(times).periods_per_year;
    };
    EXPECT_EQ(told({}), 0);
    EXPECT_EQ(told({on(2024, 1, 1)}), 0);
    EXPECT_EQ(told(days(28, false)), 252);
    EXPECT_EQ(told(days(28, true)), 365);
    EXPECT_EQ(told(days(28, true, 7)), 52);
    EXPECT_EQ(told({on(2024, 1, 31), on(2024, 2, 29), on(2024, 3, 31)}), 12);
    EXPECT_EQ(told({on(2020, 12, 31), on(2021, 12, 31)}), 1);
    // Of two equally frequent gaps the shorter; the ends of time are a gap like any other.
    EXPECT_EQ(usual_gap(std::vector{on(2024, 1, 1), on(2024, 1, 2), on(2024, 1, 9)}), kNanosPerDay);
    EXPECT_EQ(usual_gap(std::vector{kEarliest, kLatest}), kLatest);
    EXPECT_EQ(told({kEarliest, kLatest}), 1);
    auto with_saturday = days(28, false);
    with_saturday.insert(with_saturday.begin() + 5, on(2024, 1, 6));
    EXPECT_EQ(told(with_saturday), 252);
    const Convention hourly = infer_convention(
        std::vector{on(2024, 1, 1, 9 * kHour), on(2024, 1, 1, 10 * kHour), on(2024, 1, 2)});
    EXPECT_EQ(bar_name(hourly.bar), "intraday");
}

TEST(Periods, HoldTheRowsOfMonthsAndYears) {
    const std::vector times{on(1969, 12, 31, 23 * kHour), on(1970, 1, 1), on(1970, 1, 31, kHour),
                            on(1970, 3, 1), on(1971, 3, 1)};
    const std::vector<Period> months = month_periods(times);
    ASSERT_EQ(months.size(), 4U);
    EXPECT_EQ(months[0].number, 1969 * 12 + 11);
    EXPECT_EQ(months[1].first, 1U);
    EXPECT_EQ(months[1].last, 2U);
    EXPECT_EQ(months[2].number, 1970 * 12 + 2);
    const std::vector<Period> years = year_periods(months);
    ASSERT_EQ(years.size(), 3U);
    EXPECT_EQ(years[1].first, 1U);
    EXPECT_EQ(years[1].last, 3U);
    EXPECT_EQ(month_periods(std::vector{kLatest - 1, kLatest}).size(), 1U);
    EXPECT_EQ(day_ends(std::vector{on(1969, 12, 31), on(1969, 12, 31, kHour), on(1970, 1, 1)}),
              (std::vector<std::size_t>{1, 2}));
}

TEST(Periods, AreCountedBackInWholeMonths) {
    EXPECT_EQ(months_before(on(2024, 5, 31, kHour), 3), on(2024, 2, 29, kHour));
    EXPECT_EQ(months_before(on(2023, 5, 31), 3), on(2023, 2, 28));
    EXPECT_EQ(months_before(on(2024, 1, 15), 13), on(2022, 12, 15));
    EXPECT_EQ(months_before(kEarliest, 1), kEarliest);
    EXPECT_EQ(month_end_before(on(2024, 3, 5, kHour), 1), on(2024, 2, 29, kHour));
    EXPECT_EQ(month_end_before(on(2024, 3, 5), 0), on(2024, 3, 31));
    EXPECT_TRUE(is_last_in_month(on(2024, 3, 29), false)); // a Friday; Sunday is the 31st
    EXPECT_FALSE(is_last_in_month(on(2024, 3, 29), true));
    EXPECT_FALSE(is_last_in_month(on(2024, 3, 28), false));
    EXPECT_TRUE(is_last_in_month(on(2024, 12, 31, kHour), true));
}

} // namespace
} // namespace corvex::engine
