#include "corvex/engine/series/returns.hpp"
#include "corvex/engine/statistics/benchmark_fit.hpp"
#include "corvex/engine/statistics/figure_list.hpp"
#include "corvex/engine/statistics/record.hpp"
#include "corvex/engine/statistics/return_table.hpp"
#include "corvex/engine/statistics/tail_risk.hpp"

#include <nanobind/nanobind.h>

#include "arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

constexpr std::size_t kTableColumns = 13;

nb::list figures_as_list(const engine::PerformanceRecord& record) {
    nb::list figures;
    for (const double value : engine::figure_values(record)) {
        figures.append(value);
    }
    return figures;
}

nb::tuple performance_record(const InputArray<double>& values,
                             const InputArray<std::int64_t>& times, double riskfree_rate,
                             int periods_per_year) {
    engine::PerformanceRecord record;
    {
        const nb::gil_scoped_release released;
        record = engine::performance_record(as_span(values), as_span(times), riskfree_rate,
                                            periods_per_year);
    }
    const std::string_view bar = engine::bar_name(record.convention.bar);
    return nb::make_tuple(figures_as_list(record), record.count, record.first_row, record.last_row,
                          nb::str(bar.data(), bar.size()), record.convention.periods_per_year,
                          record.convention.trades_weekends);
}

nb::tuple return_table(const InputArray<double>& values, const InputArray<std::int64_t>& times) {
    std::vector<std::int64_t> years;
    std::vector<double> cells;
    {
        const nb::gil_scoped_release released;
        for (const engine::YearReturns& row :
             engine::return_table(as_span(values), as_span(times))) {
            years.push_back(row.year);
            cells.insert(cells.end(), row.months.begin(), row.months.end());
            cells.push_back(row.ytd);
        }
    }
    const std::size_t rows = years.size();
    return nb::make_tuple(to_numpy(std::move(years)),
                          to_numpy(std::move(cells), {rows, kTableColumns}));
}

nb::tuple period_figures(const InputArray<double>& returns, double riskfree_rate,
                         double periods_per_year) {
    engine::PeriodFigures f;
    {
        const nb::gil_scoped_release released;
        f = engine::period_figures(as_span(returns), riskfree_rate, periods_per_year);
    }
    return nb::make_tuple(f.sharpe, f.sortino, f.mean, f.vol, f.skew, f.kurt, f.best, f.worst);
}

nb::tuple tail_risk(const InputArray<double>& values, double share) {
    engine::TailRisk found;
    {
        const nb::gil_scoped_release released;
        found = engine::tail_risk(engine::simple_returns(as_span(values)), share);
    }
    return nb::make_tuple(found.value_at_risk, found.expected_shortfall, found.tail_ratio);
}

nb::tuple benchmark_fit(const InputArray<double>& strategy, const InputArray<double>& benchmark,
                        double periods_per_year) {
    engine::BenchmarkFit fit;
    {
        const nb::gil_scoped_release released;
        fit = engine::benchmark_fit(as_span(strategy), as_span(benchmark), periods_per_year);
    }
    return nb::make_tuple(fit.alpha, fit.beta);
}

} // namespace

void bind_statistics(nb::module_& module) {
    nb::list names;
    for (const std::string_view name : engine::figure_names()) {
        names.append(nb::str(name.data(), name.size()));
    }
    module.attr("FIGURE_NAMES") = nb::tuple(names);
    module.def("performance_record", &performance_record, "values"_a, "times"_a,
               "riskfree_rate"_a = 0.0, "periods_per_year"_a = 0,
               "(figures in the order of FIGURE_NAMES, count, first_row, last_row, bar, "
               "periods_per_year, trades_weekends).");
    module.def("return_table", &return_table, "values"_a, "times"_a,
               "Years and a (years, 13) array: twelve months and the year to date.");
    module.def("period_figures", &period_figures, "returns"_a, "riskfree_rate"_a,
               "periods_per_year"_a,
               "(sharpe, sortino, mean, vol, skew, kurt, best, worst) of one frequency's returns.");
    module.def("tail_risk", &tail_risk, "values"_a, "share"_a = 0.05,
               "Value at risk, expected shortfall and tail ratio of the changes of a curve.");
    module.def("benchmark_fit", &benchmark_fit, "strategy"_a, "benchmark"_a, "periods_per_year"_a,
               "Alpha per year and beta of two curves on the same dates.");
}

} // namespace corvex::bindings
