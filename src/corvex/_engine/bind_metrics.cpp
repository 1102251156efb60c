#include "corvex/engine/metrics/benchmark_fit.hpp"
#include "corvex/engine/metrics/holding_counts.hpp"
#include "corvex/engine/metrics/table_cells.hpp"
#include "corvex/engine/metrics/tail_risk.hpp"
#include "corvex/engine/metrics/trade_figures.hpp"
#include "corvex/engine/series/returns.hpp"

#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>

#include <optional>
#include <span>

#include "arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

/// Rows or columns in one piece, either way: pandas keeps both, and a copy costs more than the
/// count.
using Table = nb::ndarray<const double, nb::ndim<2>, nb::any_contig, nb::device::cpu>;

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

using Marks = std::optional<InputArray<bool>>;

std::span<const bool> as_span(const Marks& marks) {
    return marks ? bindings::as_span(*marks) : std::span<const bool>();
}

nb::tuple trade_figures(const InputArray<double>& returns, const Marks& counted) {
    engine::TradeFigures figures;
    {
        const nb::gil_scoped_release released;
        figures = engine::trade_figures(bindings::as_span(returns), as_span(counted));
    }
    return nb::make_tuple(figures.win_rate, figures.expectancy, figures.profit_factor);
}

double mean_present(const InputArray<double>& values, const Marks& counted) {
    const nb::gil_scoped_release released;
    return engine::mean_present(bindings::as_span(values), as_span(counted));
}

engine::TableView view_of(const Table& table) {
    const bool by_row = table.stride(1) == 1 || table.shape(1) == 1;
    return {{table.data(), table.size()},
            table.shape(0),
            table.shape(1),
            by_row ? engine::Layout::kRows : engine::Layout::kColumns};
}

nb::tuple holding_counts(const Table& weights) {
    engine::HoldingCounts counts;
    {
        const nb::gil_scoped_release released;
        counts = engine::holding_counts(view_of(weights));
    }
    return nb::make_tuple(counts.mean, counts.largest);
}

OutputArray<std::int64_t> rows_of_times(const InputArray<std::int64_t>& dates,
                                        const InputArray<std::int64_t>& times,
                                        std::int64_t per_day) {
    std::vector<std::int64_t> rows;
    {
        const nb::gil_scoped_release released;
        rows = engine::rows_of_times(bindings::as_span(dates), bindings::as_span(times), per_day);
    }
    return to_numpy(std::move(rows));
}

OutputArray<double> table_cells(const Table& table, const InputArray<std::int64_t>& rows,
                                const InputArray<std::int64_t>& columns) {
    std::vector<double> cells;
    {
        const nb::gil_scoped_release released;
        cells = engine::table_cells(view_of(table), bindings::as_span(rows),
                                    bindings::as_span(columns));
    }
    return to_numpy(std::move(cells));
}

} // namespace

void bind_metrics(nb::module_& module) {
    module.def("tail_risk", &tail_risk, "values"_a, "share"_a = 0.05,
               "Value at risk, expected shortfall and tail ratio of the changes of a curve.");
    module.def("benchmark_fit", &benchmark_fit, "strategy"_a, "benchmark"_a, "periods_per_year"_a,
               "Alpha per year and beta of two curves on the same dates.");
    module.def("trade_figures", &trade_figures, "returns"_a, "counted"_a = nb::none(),
               "Win rate, mean and profit factor of the returns that are there and count.");
    module.def("mean_present", &mean_present, "values"_a, "counted"_a = nb::none(),
               "Mean of the values that are there and count.");
    module.def("holding_counts", &holding_counts, "weights"_a,
               "Mean and largest number of assets held at once.");
    module.def("rows_of_times", &rows_of_times, "dates"_a, "times"_a, "per_day"_a,
               "The row of each time among rising dates, -1 where it is none of them.");
    module.def("table_cells", &table_cells, "table"_a, "rows"_a, "columns"_a,
               "One value for each pair of a row and a column, NaN where either is negative.");
}

} // namespace corvex::bindings
