#include "corvex/engine/calendar/schedule.hpp"

#include <nanobind/nanobind.h>
#include <nanobind/stl/string_view.h>

#include "arrays.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace corvex::bindings {

namespace {

OutputArray<std::int64_t> period_last_sessions(const InputArray<std::int64_t>& sessions,
                                               std::string_view rule) {
    std::vector<std::int64_t> rows;
    {
        const nb::gil_scoped_release released;
        rows = engine::period_last_sessions(as_span(sessions), engine::parse_period_rule(rule));
    }
    return to_numpy(std::move(rows));
}

nb::tuple period_bounds(const InputArray<std::int64_t>& sessions, std::string_view rule) {
    const auto bounds =
        engine::last_period_bounds(as_span(sessions), engine::parse_period_rule(rule));
    return nb::make_tuple(bounds.start, bounds.end);
}

OutputArray<std::int64_t> rows_at_or_before(const InputArray<std::int64_t>& sessions,
                                            const InputArray<std::int64_t>& dates) {
    std::vector<std::int64_t> rows;
    {
        const nb::gil_scoped_release released;
        rows = engine::rows_at_or_before(as_span(sessions), as_span(dates));
    }
    return to_numpy(std::move(rows));
}

} // namespace

void bind_calendar(nb::module_& module) {
    module.def("period_last_sessions", &period_last_sessions, "sessions"_a, "rule"_a,
               "Rows of the last session of each period of a pandas frequency alias.");
    module.def("period_bounds", &period_bounds, "sessions"_a, "rule"_a,
               "Start of the period that holds the last session, and of the period after it.");
    module.def("rows_at_or_before", &rows_at_or_before, "sessions"_a, "dates"_a,
               "For each date the last row at or before it, -1 where there is none.");
}

} // namespace corvex::bindings
