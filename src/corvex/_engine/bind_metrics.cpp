#include "corvex/engine/metrics/benchmark_fit.hpp"
#include "corvex/engine/metrics/holding_counts.hpp"
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

nb::tuple holding_counts(const Table& weights) {
    engine::HoldingCounts counts;
    {
        const nb::gil_scoped_release released;
        const bool by_date = weights.stride(1) == 1 || weights.shape(1) == 1;
        counts = engine::holding_counts({weights.data(), weights.size()}, weights.shape(1),
                                        by_date ? engine::Layout::kDates : engine::Layout::kAssets);
    }
    return nb::make_tuple(counts.mean, counts.largest);
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
}

} // namespace corvex::bindings
