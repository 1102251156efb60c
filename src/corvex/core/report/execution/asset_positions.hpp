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

/// Calls `visit(AssetPosition)` for every asset of any of the three series, in sorted order.
template <typename Visit>
void for_each_asset(nanobind::handle execution, Visit&& visit) {
    namespace nb = nanobind;
    const nb::object weights = execution.attr("weights");
    const nb::object next_weights = execution.attr("next_weights");
    const nb::object actions = execution.attr("actions");
    const nb::object to_float = pyglue::builtin("float");
    const nb::object nothing = pyglue::integer(0);
    const nb::object labels = weights.attr("index")
                                  .attr("union")(next_weights.attr("index"))
                                  .attr("union")(actions.attr("index"));
    pyglue::for_each(labels, [&](const nb::object& label) {
        // Plain floats: json knows no numpy integers.
        visit(AssetPosition{label, to_float(weights.attr("get")(label, nothing)),
                            to_float(next_weights.attr("get")(label, nothing)),
                            actions.attr("get")(label, pyglue::text("hold"))});
        return true;
    });
}

} // namespace corvex::report
