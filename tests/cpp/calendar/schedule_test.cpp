#include "corvex/engine/calendar/schedule.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace corvex::engine::calendar {
namespace {

using Rows = std::vector<std::int64_t>;

/// Weekdays from Thursday 2024-01-25 on.
std::vector<Nanos> weekdays(int count) {
    std::vector<Nanos> sessions;
    for (std::int64_t day = day_from_civil(2024, 1, 25); std::ssize(sessions) < count; ++day) {
        if (weekday(day) < 5) {
            sessions.push_back(day * kNanosPerDay);
        }
    }
    return sessions;
}

Rows last_rows(std::string_view rule, int count = 12) {
    return period_last_sessions(weekdays(count), parse_period_rule(rule));
}

TEST(Schedule, EndsEachPeriodWithItsLastSession) {
    // Th 25, Fr 26 | Mo 29, Tu 30, We 31, Th 1, Fr 2 | Mo 5 ... Fr 9
    EXPECT_EQ(last_rows("W"), (Rows{1, 6, 11}));
    EXPECT_EQ(last_rows("W-WED"), (Rows{4, 9, 11}));
    EXPECT_EQ(last_rows("ME"), (Rows{4, 11}));
    EXPECT_EQ(last_rows("BM"), last_rows("MS"));
    EXPECT_EQ(last_rows("QE"), (Rows{11}));
    EXPECT_EQ(last_rows("Q-JAN"), (Rows{4, 11}));
    EXPECT_EQ(last_rows("QS-FEB"), (Rows{4, 11}));
    EXPECT_EQ(last_rows("D", 3), (Rows{0, 1, 2}));
    EXPECT_EQ(last_rows("2W"), (Rows{1, 11})); // a multiple closes with the first period
}

TEST(Schedule, BoundsTheLastPeriod) {
    const auto month = last_period_bounds(weekdays(12), parse_period_rule("M"));
    EXPECT_EQ(month.start, day_from_civil(2024, 2, 1) * kNanosPerDay);
    EXPECT_EQ(month.end, day_from_civil(2024, 3, 1) * kNanosPerDay);
    const auto quarter = last_period_bounds(weekdays(3), parse_period_rule("QE"));
    EXPECT_EQ(quarter.start, day_from_civil(2024, 1, 1) * kNanosPerDay);
    const auto two_weeks = last_period_bounds(weekdays(4), parse_period_rule("2W"));
    EXPECT_EQ(two_weeks.start, day_from_civil(2024, 1, 29) * kNanosPerDay);
    EXPECT_EQ(two_weeks.end, day_from_civil(2024, 2, 12) * kNanosPerDay);
}

TEST(Schedule, TakesTheRowAtOrBeforeADate) {
    const std::vector<Nanos> sessions{10, 20, 30};
    const std::vector<Nanos> dates{5, 10, 25, 99};
    EXPECT_EQ(rows_at_or_before(sessions, dates), (Rows{-1, 0, 1, 2}));
}

TEST(Schedule, RefusesWhatItDoesNotKnow) {
    for (const char* alias :
         {"", "X", "W-", "W-FOO", "D-MON", "0D", "ME-JAN", "BD", "1.5D", "-1D"}) {
        EXPECT_THROW(parse_period_rule(alias), std::invalid_argument) << alias;
    }
    const std::vector<Nanos> unsorted{2, 1};
    EXPECT_THROW(period_last_sessions(unsorted, {}), std::invalid_argument);
}

} // namespace
} // namespace corvex::engine::calendar
