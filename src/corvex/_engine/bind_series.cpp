#include "corvex/engine/series/bars.hpp"
#include "corvex/engine/series/curve.hpp"
#include "corvex/engine/series/periods.hpp"
#include "corvex/engine/series/returns.hpp"

#include <nanobind/nanobind.h>

#include "arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

std::ptrdiff_t first_unordered(const InputArray<std::int64_t>& times) {
    const nb::gil_scoped_release released;
    return engine::first_unordered(as_span(times));
}

nb::tuple infer_convention(const InputArray<std::int64_t>& times) {
    engine::Convention found;
    {
        const nb::gil_scoped_release released;
        found = engine::infer_convention(as_span(times));
    }
    const std::string_view name = engine::bar_name(found.bar);
    return nb::make_tuple(nb::str(name.data(), name.size()), found.periods_per_year,
                          found.trades_weekends);
}

std::int64_t usual_gap(const InputArray<std::int64_t>& times) {
    const nb::gil_scoped_release released;
    return engine::usual_gap(as_span(times));
}

OutputArray<std::int64_t> month_end_rows(const InputArray<std::int64_t>& times) {
    std::vector<std::int64_t> rows;
    {
        const nb::gil_scoped_release released;
        for (const engine::Period& month : engine::month_periods(as_span(times))) {
            rows.push_back(static_cast<std::int64_t>(month.last));
        }
    }
    return to_numpy(std::move(rows));
}

OutputArray<std::int64_t> year_end_rows(const InputArray<std::int64_t>& times) {
    std::vector<std::int64_t> rows;
    {
        const nb::gil_scoped_release released;
        const auto months = engine::month_periods(as_span(times));
        for (const engine::Period& year : engine::year_periods(months)) {
            rows.push_back(static_cast<std::int64_t>(year.last));
        }
    }
    return to_numpy(std::move(rows));
}

OutputArray<std::int64_t> day_end_rows(const InputArray<std::int64_t>& times) {
    std::vector<std::int64_t> rows;
    {
        const nb::gil_scoped_release released;
        for (const std::size_t row : engine::day_ends(as_span(times))) {
            rows.push_back(static_cast<std::int64_t>(row));
        }
    }
    return to_numpy(std::move(rows));
}

OutputArray<double> rebase(const InputArray<double>& values, double base) {
    std::vector<double> out(values.shape(0));
    {
        const nb::gil_scoped_release released;
        engine::rebase(as_span(values), base, out);
    }
    return to_numpy(std::move(out));
}

} // namespace

void bind_series(nb::module_& module) {
    module.def("first_unordered", &first_unordered, "times"_a,
               "Row of the first time not later than the one before it; -1 when all increase.");
    module.def("infer_convention", &infer_convention, "times"_a,
               "(bar, periods_per_year, trades_weekends) as the dates tell.");
    module.def("usual_gap", &usual_gap, "times"_a,
               "The lower median distance between two times; 0 for fewer than two.");
    module.def("month_end_rows", &month_end_rows, "times"_a, "Last row of each month present.");
    module.def("year_end_rows", &year_end_rows, "times"_a, "Last row of each year present.");
    module.def("day_end_rows", &day_end_rows, "times"_a, "Last row of each day present.");
    module.def("rebase", &rebase, "values"_a, "base"_a,
               "Values scaled so that the first present one becomes `base`.");
}

} // namespace corvex::bindings
