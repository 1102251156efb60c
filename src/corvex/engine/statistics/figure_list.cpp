#include "corvex/engine/statistics/figure_list.hpp"

namespace corvex::engine::inline v1 {

namespace {

/// The one list of figures: calls `take(name, value)` for each, in the order of the record.
template <typename Take>
void for_each_figure(const PerformanceRecord& r, Take&& take) {
    const auto take_period = [&](const auto& names, const PeriodFigures& f) {
        const std::array<double, 8> values{f.sharpe, f.sortino, f.mean, f.vol,
                                           f.skew,   f.kurt,    f.best, f.worst};
        for (std::size_t i = 0; i < values.size(); ++i) {
            take(names[i], values[i]);
        }
    };
    using Names = std::array<std::string_view, 8>;
    take("total_return", r.total_return);
    take("cagr", r.cagr);
    take("max_drawdown", r.max_drawdown);
    take("calmar", r.calmar);
    take("mtd", r.lookback.mtd);
    take("three_month", r.lookback.three_month);
    take("six_month", r.lookback.six_month);
    take("ytd", r.lookback.ytd);
    take("one_year", r.lookback.one_year);
    take("three_year", r.lookback.three_year);
    take("five_year", r.lookback.five_year);
    take("ten_year", r.lookback.ten_year);
    take("incep", r.cagr);
    take_period(Names{"daily_sharpe", "daily_sortino", "daily_mean", "daily_vol", "daily_skew",
                      "daily_kurt", "best_day", "worst_day"},
                r.daily);
    take_period(Names{"monthly_sharpe", "monthly_sortino", "monthly_mean", "monthly_vol",
                      "monthly_skew", "monthly_kurt", "best_month", "worst_month"},
                r.monthly);
    take_period(Names{"yearly_sharpe", "yearly_sortino", "yearly_mean", "yearly_vol", "yearly_skew",
                      "yearly_kurt", "best_year", "worst_year"},
                r.yearly);
    take("avg_drawdown", r.avg_drawdown);
    take("avg_drawdown_days", r.avg_drawdown_days);
    take("avg_up_month", r.avg_up_month);
    take("avg_down_month", r.avg_down_month);
    take("win_year_perc", r.win_year_perc);
    take("twelve_month_win_perc", r.twelve_month_win_perc);
}

} // namespace

const std::array<std::string_view, kFigureCount>& figure_names() {
    static const auto names = [] {
        std::array<std::string_view, kFigureCount> list;
        std::size_t next = 0;
        for_each_figure(PerformanceRecord{},
                        [&](std::string_view name, double) { list.at(next++) = name; });
        return list;
    }();
    return names;
}

std::array<double, kFigureCount> figure_values(const PerformanceRecord& record) {
    std::array<double, kFigureCount> values;
    std::size_t next = 0;
    for_each_figure(record, [&](std::string_view, double value) { values.at(next++) = value; });
    return values;
}

} // namespace corvex::engine::inline v1
