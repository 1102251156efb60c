#include "corvex/engine/trades/trade_figures.hpp"

#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>

#include <optional>
#include <span>

#include "arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

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

} // namespace

void bind_trades(nb::module_& module) {
    module.def("trade_figures", &trade_figures, "returns"_a, "counted"_a = nb::none(),
               "Win rate, mean and profit factor of the returns that are there and count.");
    module.def("mean_present", &mean_present, "values"_a, "counted"_a = nb::none(),
               "Mean of the values that are there and count.");
}

} // namespace corvex::bindings
