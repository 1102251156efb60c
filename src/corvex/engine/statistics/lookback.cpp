#include "corvex/engine/statistics/lookback.hpp"

#include "corvex/engine/series/returns.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kSecondsPerYear = 365.25 * 86'400.0;
constexpr int kMonthsPerYear = 12;

} // namespace

double compound_annual_growth(double first, double last, std::uint64_t elapsed) {
    const double years =
        static_cast<double>(elapsed) / static_cast<double>(kNanosPerSecond) / kSecondsPerYear;
    return years > 0.0 ? std::pow(last / first, 1.0 / years) - 1.0 : kNaN;
}

LookbackReturns lookback_returns(std::span<const double> values, std::span<const Nanos> times,
                                 std::span<const Period> months, std::span<const Period> years,
                                 const Convention& convention) {
    if (values.empty()) {
        return {};
    }
    const double last = values.back();
    const Bar bar = convention.bar;
    const bool month_ends =
        bar >= Bar::kMonth || is_last_in_month(times.back(), convention.trades_weekends);
    const auto simple = [&](int count, Bar longest) {
        const Nanos base =
            month_ends ? month_end_before(times.back(), count) : months_before(times.back(), count);
        if (base < times.front() || bar > longest) {
            return kNaN;
        }
        const auto after = std::upper_bound(times.begin(), times.end(), base) - times.begin();
        // Times in disorder may put any row here, but none outside the curve.
        return after > 0 ? last / values[static_cast<std::size_t>(after - 1)] - 1.0 : kNaN;
    };
    const auto compound = [&](int count) {
        const Nanos base = months_before(times.back(), count * kMonthsPerYear);
        if (base < times.front()) {
            return kNaN;
        }
        const auto at = static_cast<std::size_t>(
            std::lower_bound(times.begin(), times.end(), base) - times.begin());
        return at < times.size() ? compound_annual_growth(values[at], last,
                                                          nanos_between(times[at], times.back()))
                                 : kNaN;
    };
    LookbackReturns found;
    found.mtd = bar > Bar::kMonth ? kNaN : return_within(values, months, months.size() - 1);
    found.three_month = simple(3, Bar::kQuarter);
    found.six_month = simple(6, Bar::kHalfYear);
    found.ytd = return_within(values, years, years.size() - 1);
    found.one_year = simple(kMonthsPerYear, Bar::kYear);
    found.three_year = compound(3);
    found.five_year = compound(5);
    found.ten_year = compound(10);
    return found;
}

} // namespace corvex::engine::inline v1
