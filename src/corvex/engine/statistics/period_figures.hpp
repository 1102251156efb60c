#pragma once

#include <limits>
#include <span>

namespace corvex::engine::inline v1 {

/// The figures of the returns of one frequency. Mean, volatility and the two ratios are annualised.
struct PeriodFigures {
    static constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

    double sharpe = kUndefined;
    double sortino = kUndefined;
    double mean = kUndefined; ///< arithmetic mean times periods per year
    double vol = kUndefined;  ///< sample standard deviation times the root of periods per year
    double skew = kUndefined;
    double kurt = kUndefined;
    double best = kUndefined;  ///< largest return of a single period
    double worst = kUndefined; ///< smallest
};

/// @param returns           simple returns per period, NaN = missing
/// @param riskfree_rate     per year, a fraction; (1 + rate)^(1 / periods) - 1 is taken off each
///                          return for the two ratios
/// @param periods_per_year  > 0
///
/// sharpe  = mean(excess) / standard deviation * sqrt(periods); NaN without dispersion.
/// sortino = mean(excess) / sqrt(mean(min(excess, 0)^2)) * sqrt(periods); infinite where no return
///           falls short and the mean is positive, NaN where the mean is 0 too.
/// @throws std::invalid_argument for a rate of -1 or less, or periods that are not positive
/// Source: W. F. Sharpe, "The Sharpe Ratio", Journal of Portfolio Management 21 (1994);
/// F. A. Sortino and R. van der Meer, "Downside risk", same journal 17 (1991).
PeriodFigures period_figures(std::span<const double> returns, double riskfree_rate,
                             double periods_per_year);

} // namespace corvex::engine::inline v1
