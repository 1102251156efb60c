#include "corvex/engine/series/bars.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace corvex::engine {
namespace {

constexpr Nanos kHour = 3600 * kNanosPerSecond;

/// Times at the given days after Monday 2024-01-01.
std::vector<Nanos> on_days(const std::vector<int>& days) {
    std::vector<Nanos> times;
    for (const int day : days) {
        times.push_back((day_from_civil(2024, 1, 1) + day) * kNanosPerDay);
    }
    return times;
}

TEST(InferConvention, TellsTheYearFromTheWeekdaysNotFromTheNumberOfRows) {
    const auto periods_of = [](auto keeps) {
        std::vector<int> days;
        for (int day = 0; day < 70; ++day) {
            if (keeps(day)) {
                days.push_back(day);
            }
        }
        return infer_convention(on_days(days)).periods_per_year;
    };
    EXPECT_EQ(periods_of([](int day) { return day % 7 < 5; }), 252);
    EXPECT_EQ(periods_of([](int) { return true; }), 365);
    EXPECT_EQ(periods_of([](int day) { return day % 7 < 5 || day == 33; }), 252); // a Saturday
    EXPECT_EQ(periods_of([](int day) { return day % 3 != 1; }), 365);             // with holes
    EXPECT_EQ(infer_convention(on_days({0, 1})).periods_per_year, 252);
    EXPECT_EQ(infer_convention(on_days({5, 6})).periods_per_year, 365);
    EXPECT_EQ(infer_convention(on_days({4, 7})).bar, Bar::kDay); // Friday, Monday
}

TEST(InferConvention, TakesTheMedianDistanceAsTheBar) {
    EXPECT_EQ(infer_convention(on_days({0, 1, 2, 60, 61, 62, 63})).bar, Bar::kDay);
    EXPECT_EQ(infer_convention(on_days({0, 7, 14, 22, 28})).bar, Bar::kWeek);
    EXPECT_EQ(infer_convention(on_days({30, 59, 90, 120, 151})).periods_per_year, 12);
    EXPECT_EQ(infer_convention(on_days({0, 91, 182, 274})).periods_per_year, 4);
    EXPECT_EQ(infer_convention(on_days({0, 366, 731})).periods_per_year, 1);
    EXPECT_EQ(infer_convention(on_days({0})).bar, Bar::kUnknown);
    EXPECT_EQ(infer_convention({}).periods_per_year, 0);
}

TEST(InferConvention, CountsTheDaysOfIntradayBars) {
    std::vector<Nanos> times; // 9:00 to 13:00 on ten weekdays
    for (int day = 0; day < 12; ++day) {
        for (int hour = 9; hour < 14 && day % 7 < 5; ++hour) {
            times.push_back(on_days({day})[0] + hour * kHour);
        }
    }
    const Convention found = infer_convention(times);
    EXPECT_EQ(found.bar, Bar::kIntraday);
    EXPECT_EQ(found.periods_per_year, 252);
    EXPECT_EQ(bar_name(found.bar), "intraday");
}

} // namespace
} // namespace corvex::engine
