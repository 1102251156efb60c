#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// One asset of an execution record: what it weighs now and next, and what is to be done.
struct AssetPosition {
    nanobind::object label;
    nanobind::object current_weight;
    nanobind::object next_weight;
    nanobind::object action;
};

/// The entry of an asset, the last one where a label is repeated.
inline nanobind::object entry_of(nanobind::handle series, nanobind::handle label,
                                 nanobind::handle absent) {
    const nanobind::object entry = series.attr("get")(label, absent);
    return nanobind::hasattr(entry, "iloc") ? nanobind::object(entry.attr("iloc")[-1]) : entry;
}

/// Calls `visit(AssetPosition)` once for every asset of any of the three series, in the order of
/// the union of their indexes.
template <typename Visit>
void for_each_asset(nanobind::handle execution, Visit&& visit) {
    namespace nb = nanobind;
    const nb::object weights = execution.attr("weights");
    const nb::object next_weights = execution.attr("next_weights");
    const nb::object actions = execution.attr("actions");
    const nb::object to_float = pyglue::builtin("float");
    const nb::object nothing = pyglue::integer(0);
    const nb::object hold = pyglue::text("hold");
    const nb::object labels = weights.attr("index")
                                  .attr("union")(next_weights.attr("index"))
                                  .attr("union")(actions.attr("index"))
                                  .attr("unique")();
    pyglue::for_each(labels, [&](const nb::object& label) {
        // Plain floats: json knows no numpy integers.
        visit(AssetPosition{label, to_float(entry_of(weights, label, nothing)),
                            to_float(entry_of(next_weights, label, nothing)),
                            entry_of(actions, label, hold)});
        return true;
    });
}

} // namespace corvex::report
