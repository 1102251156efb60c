#include "corvex/engine/metrics/benchmark_fit.hpp"
#include "corvex/engine/metrics/holding_counts.hpp"
#include "corvex/engine/metrics/tail_risk.hpp"
#include "corvex/engine/metrics/trade_figures.hpp"

#include <nanobind/nanobind.h>

#include "arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

using Table = nb::ndarray<const double, nb::ndim<2>, nb::c_contig, nb::device::cpu>;

nb::tuple tail_risk(const InputArray<double>& returns, double share) {
    engine::TailRisk found;
    {
        const nb::gil_scoped_release released;
        found = engine::tail_risk(as_span(returns), share);
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

nb::tuple trade_figures(const InputArray<double>& returns) {
    engine::TradeFigures figures;
    {
        const nb::gil_scoped_release released;
        figures = engine::trade_figures(as_span(returns));
    }
    return nb::make_tuple(figures.win_rate, figures.expectancy, figures.profit_factor);
}

double mean_present(const InputArray<double>& values) {
    const nb::gil_scoped_release released;
    return engine::mean_present(as_span(values));
}

nb::tuple holding_counts(const Table& weights) {
    engine::HoldingCounts counts;
    {
        const nb::gil_scoped_release released;
        counts = engine::holding_counts({weights.data(), weights.size()}, weights.shape(1));
    }
    return nb::make_tuple(counts.mean, counts.largest);
}

} // namespace

void bind_metrics(nb::module_& module) {
    module.def("tail_risk", &tail_risk, "returns"_a, "share"_a = 0.05,
               "Value at risk, expected shortfall and tail ratio.");
    module.def("benchmark_fit", &benchmark_fit, "strategy"_a, "benchmark"_a, "periods_per_year"_a,
               "Alpha per year and beta of two curves on the same dates.");
    module.def("trade_figures", &trade_figures, "returns"_a,
               "Win rate, expectancy and profit factor of the trades that have a return.");
    module.def("mean_present", &mean_present, "values"_a,
               "Mean of the values that are not missing.");
    module.def("holding_counts", &holding_counts, "weights"_a,
               "Mean and largest number of assets held at once.");
}

} // namespace corvex::bindings
