#include "corvex/engine/statistics/lookback.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace corvex::engine {
namespace {

Nanos at(int year, int month, int day) { return day_from_civil(year, month, day) * kNanosPerDay; }

/// One value a weekday from 2006-01-02 to `end`, equal to the days since 1970.
struct Weekdays {
    std::vector<double> values;
    std::vector<Nanos> times;

    explicit Weekdays(Nanos end) {
        for (Nanos time = at(2006, 1, 2); time <= end; time += kNanosPerDay) {
            if (weekday(day_number(time)) < 5) {
                times.push_back(time);
                values.push_back(static_cast<double>(day_number(time)));
            }
        }
    }

    LookbackReturns returns() const {
        const std::vector<Period> months = month_periods(times);
        return lookback_returns(values, times, months, year_periods(months),
                                infer_convention(times));
    }

    double from(Nanos base) const {
        return values.back() / static_cast<double>(day_number(base)) - 1.0;
    }
};

TEST(LookbackReturns, ReachTheLastValueNotLaterThanTheWindow) {
    const Weekdays curve(at(2010, 9, 22));
    const LookbackReturns found = curve.returns();
    EXPECT_DOUBLE_EQ(found.mtd, curve.from(at(2010, 8, 31)));
    EXPECT_DOUBLE_EQ(found.three_month, curve.from(at(2010, 6, 22)));
    EXPECT_DOUBLE_EQ(found.six_month, curve.from(at(2010, 3, 22)));
    EXPECT_DOUBLE_EQ(found.ytd, curve.from(at(2009, 12, 31)));
    EXPECT_DOUBLE_EQ(found.one_year, curve.from(at(2009, 9, 22)));
    // 2007-09-22 is a Saturday: the growth counts from the Monday after it, over that time.
    const double years =
        static_cast<double>(day_number(at(2010, 9, 22) - at(2007, 9, 24))) / 365.25;
    EXPECT_NEAR(found.three_year, std::pow(1.0 + curve.from(at(2007, 9, 24)), 1 / years) - 1,
                1e-14);
    EXPECT_TRUE(std::isnan(found.five_year));
}

TEST(LookbackReturns, GoFromMonthEndToMonthEnd) {
    const Weekdays curve(at(2009, 10, 30)); // the last weekday, not the last day
    EXPECT_DOUBLE_EQ(curve.returns().three_month, curve.from(at(2009, 7, 31)));
    EXPECT_DOUBLE_EQ(curve.returns().one_year, curve.from(at(2008, 10, 31)));
}

TEST(LookbackReturns, NeedBarsNotLongerThanTheWindow) {
    const std::vector<Nanos> times{at(2006, 12, 29), at(2007, 12, 31), at(2008, 12, 31)};
    const std::vector<double> values{1.0, 2.0, 3.0};
    const std::vector<Period> months = month_periods(times);
    const LookbackReturns found =
        lookback_returns(values, times, months, year_periods(months), infer_convention(times));
    EXPECT_TRUE(std::isnan(found.mtd) && std::isnan(found.six_month));
    EXPECT_DOUBLE_EQ(found.one_year, 0.5);
    EXPECT_DOUBLE_EQ(found.ytd, 0.5);
}

} // namespace
} // namespace corvex::engine
