#pragma once

#include "corvex/engine/series/bars.hpp"
#include "corvex/engine/statistics/curve_dates.hpp"
#include "corvex/engine/statistics/lookback.hpp"
#include "corvex/engine/statistics/period_figures.hpp"

#include <cstddef>
#include <limits>
#include <span>

namespace corvex::engine::inline v1 {

/// The performance figures of one curve. Fractions, not percent; NaN where undefined.
struct PerformanceRecord {
    static constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

    std::size_t count = 0;     ///< present values
    std::size_t first_row = 0; ///< rows of the first and the last present value
    std::size_t last_row = 0;
    Convention convention;

    double total_return = kUndefined;
    double cagr = kUndefined;
    double max_drawdown = kUndefined;
    double calmar = kUndefined;
    LookbackReturns lookback;
    PeriodFigures daily; ///< of daily bars; longer bars give only the annualised figures
    PeriodFigures monthly;
    PeriodFigures yearly;
    double avg_drawdown = kUndefined;
    double avg_drawdown_days = kUndefined;
    double avg_up_month = kUndefined;
    double avg_down_month = kUndefined;
    double win_year_perc = kUndefined;
    double twelve_month_win_perc = kUndefined;
};

/// Works the record out of a curve's values.
///
/// The first and last date and all differences of time are those of the wall clock, so a curve
/// gives the same figures with a time zone and without. A curve with fewer than two present values
/// has no figure at all: every one is NaN.
///
/// @param values         curve of prices or cumulative wealth; missing values are dropped
/// @param times          local wall time of each value, increasing
/// @param riskfree_rate  per year, a fraction
/// @param periods_per_year  bars in a year for the daily figures; 0 = as the dates tell
/// @throws std::invalid_argument as PresentCurve and period_figures, or for negative periods
PerformanceRecord performance_record(std::span<const double> values, std::span<const Nanos> times,
                                     double riskfree_rate, int periods_per_year = 0);

/// The same of a curve without missing or infinite values, over dates that were read before.
PerformanceRecord performance_record(std::span<const double> values, const CurveDates& dates,
                                     double riskfree_rate);

} // namespace corvex::engine::inline v1
