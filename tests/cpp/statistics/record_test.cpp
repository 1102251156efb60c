#include "corvex/engine/statistics/figure_list.hpp"
#include "corvex/engine/statistics/moments.hpp"
#include "corvex/engine/statistics/record.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Nanos at(int year, int month, int day) { return day_from_civil(year, month, day) * kNanosPerDay; }

TEST(PerformanceRecord, CountsMonthsAndYears) {
    // Month ends of 2023 and 2024: up a tenth in odd months, down a tenth in even ones.
    std::vector<Nanos> times{at(2022, 12, 31)};
    std::vector<double> values{100.0};
    for (int month = 1; month <= 24; ++month) {
        times.push_back(month_end_before(at(2022, 12, 31), -month));
        values.push_back(values.back() * (month % 2 == 1 ? 1.1 : 0.9));
    }
    const PerformanceRecord record = performance_record(values, times, 0.0);
    EXPECT_NEAR(record.avg_up_month, 0.1, 1e-14);
    EXPECT_NEAR(record.avg_down_month, -0.1, 1e-14);
    EXPECT_EQ(record.win_year_perc, 0.0);
    EXPECT_EQ(record.twelve_month_win_perc, 0.0);
    EXPECT_NEAR(record.yearly.worst, std::pow(0.99, 6) - 1, 1e-14);
    EXPECT_NEAR(record.calmar, record.cagr / -record.max_drawdown, 1e-15);
    EXPECT_EQ(record.convention.periods_per_year, 12);
    EXPECT_EQ(performance_record(values, times, 0.0, 10).convention.periods_per_year, 10);
}

TEST(PerformanceRecord, OfTooFewValuesIsUndefined) {
    const std::vector<Nanos> times{at(2024, 1, 1), at(2024, 1, 2), at(2024, 1, 3)};
    const std::vector<double> one_value{kNaN, 5.0, kNaN};
    for (const std::vector<double>& values : {one_value, std::vector<double>(3, kNaN)}) {
        const PerformanceRecord record = performance_record(values, times, 0.02);
        const auto figures = figure_values(record);
        EXPECT_TRUE(
            std::all_of(figures.begin(), figures.end(), [](double v) { return std::isnan(v); }));
    }
    EXPECT_EQ(performance_record(one_value, times, 0.0).first_row, 1U);
    EXPECT_THROW(performance_record(one_value, {}, 0.0), std::invalid_argument);
    EXPECT_THROW(performance_record(one_value, times, 0.0, -1), std::invalid_argument);
}

TEST(Moments, LeaveUndefinedWhatTooFewReturnsCannotTell) {
    const Moments one = moments(std::vector<double>{0.01}, 0.0);
    EXPECT_EQ(one.mean, 0.01);
    EXPECT_TRUE(std::isnan(one.deviation));
    EXPECT_TRUE(std::isnan(moments(std::vector<double>{0.01, 0.02}, 0.0).skew));
    EXPECT_TRUE(std::isnan(moments(std::vector<double>{0.01, 0.02, 0.03}, 0.0).kurt));
    EXPECT_EQ(moments(std::vector<double>{kNaN}, 0.0).count, 0U);
}

} // namespace
} // namespace corvex::engine
