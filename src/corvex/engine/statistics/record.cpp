#include "corvex/engine/statistics/record.hpp"

#include "corvex/engine/drawdown/episodes.hpp"
#include "corvex/engine/series/curve.hpp"
#include "corvex/engine/series/returns.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kMonthsPerYear = 12;

/// Returns of the curve's daily bars. An intraday curve is read at the last value of each day, and
/// its first day counts from its own first value: otherwise that day's return would be lost.
std::vector<double> bar_returns(std::span<const double> values, const CurveDates& dates) {
    if (dates.convention.bar != Bar::kIntraday) {
        return simple_returns(values);
    }
    std::vector<double> closes;
    closes.reserve(dates.day_ends.size() + 1);
    if (dates.day_ends.front() > 0) {
        closes.push_back(values.front());
    }
    for (const std::size_t row : dates.day_ends) {
        closes.push_back(values[row]);
    }
    return simple_returns(closes);
}

PeriodFigures daily_figures(std::span<const double> values, const CurveDates& dates, double rate) {
    PeriodFigures figures = period_figures(bar_returns(values, dates), rate,
                                           static_cast<double>(dates.convention.periods_per_year));
    if (dates.convention.bar > Bar::kDay) {
        // The annualised figures can be compared over bar lengths; these belong to a single day.
        figures.skew = figures.kurt = figures.best = figures.worst = kNaN;
    }
    return figures;
}

double mean_where(std::span<const double> values, bool positive) {
    double sum = 0.0;
    double count = 0.0;
    for (const double value : values) {
        if (!std::isnan(value) && (value > 0.0) == positive) {
            sum += value;
            count += 1.0;
        }
    }
    return count > 0.0 ? sum / count : kNaN;
}

double share_positive(std::span<const double> values) {
    double positive = 0.0;
    double count = 0.0;
    for (const double value : values) {
        positive += value > 0.0 ? 1.0 : 0.0;
        count += std::isnan(value) ? 0.0 : 1.0;
    }
    return count > 0.0 ? positive / count : kNaN;
}

/// Returns over twelve months, from each month's end to the end of the same month a year later.
std::vector<double> twelve_month_returns(std::span<const double> values,
                                         std::span<const Period> months) {
    std::vector<double> returns;
    returns.reserve(months.size());
    std::size_t base = 0;
    for (const Period& month : months) {
        while (months[base].number < month.number - kMonthsPerYear) {
            ++base;
        }
        if (months[base].number == month.number - kMonthsPerYear) {
            returns.push_back(values[month.last] / values[months[base].last] - 1.0);
        }
    }
    return returns;
}

void add_drawdowns(PerformanceRecord& record, std::span<const double> values,
                   std::span<const Nanos> times) {
    const DrawdownSummary drawdowns = summarise_drawdowns(values, times);
    record.max_drawdown = drawdowns.max;
    record.avg_drawdown = drawdowns.average;
    record.avg_drawdown_days = drawdowns.avg_days;
    record.calmar = record.cagr / std::abs(record.max_drawdown);
}

void add_periods(PerformanceRecord& record, std::span<const double> values, const CurveDates& dates,
                 double rate) {
    const std::vector<double> monthly = period_returns(values, dates.months);
    const std::vector<double> yearly = period_returns(values, dates.years);
    record.lookback =
        lookback_returns(values, dates.times, dates.months, dates.years, record.convention);
    record.monthly = period_figures(monthly, rate, kMonthsPerYear);
    record.yearly = period_figures(yearly, rate, 1.0);
    record.avg_up_month = mean_where(monthly, true);
    record.avg_down_month = mean_where(monthly, false);
    record.win_year_perc = share_positive(yearly);
    record.twelve_month_win_perc = share_positive(twelve_month_returns(values, dates.months));
}

} // namespace

PerformanceRecord performance_record(std::span<const double> values, const CurveDates& dates,
                                     double riskfree_rate) {
    PerformanceRecord record;
    record.count = values.size();
    if (values.empty()) {
        return record;
    }
    record.last_row = values.size() - 1;
    if (values.size() < 2) {
        return record;
    }
    const double first = values.front();
    const double last = values.back();
    record.convention = dates.convention;
    record.total_return = last / first - 1.0;
    record.cagr =
        compound_annual_growth(first, last, nanos_between(dates.times.front(), dates.times.back()));
    add_drawdowns(record, values, dates.times);
    record.daily = daily_figures(values, dates, riskfree_rate);
    add_periods(record, values, dates, riskfree_rate);
    return record;
}

PerformanceRecord performance_record(std::span<const double> values, std::span<const Nanos> times,
                                     double riskfree_rate, int periods_per_year) {
    if (periods_per_year < 0) {
        throw std::invalid_argument("the periods per year must not be negative");
    }
    const PresentCurve curve(values, times);
    CurveDates dates{curve.times()};
    if (periods_per_year > 0) {
        dates.convention.periods_per_year = periods_per_year;
    }
    PerformanceRecord record = performance_record(curve.values(), dates, riskfree_rate);
    if (curve.size() > 0) {
        record.first_row = curve.row(0);
        record.last_row = curve.row(curve.size() - 1);
    }
    return record;
}

} // namespace corvex::engine::inline v1
