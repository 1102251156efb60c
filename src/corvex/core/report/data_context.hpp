#pragma once

#include "corvex/core/report/imports.hpp"

namespace corvex::report {

/// Runs `work()` while the data layer keeps its record of loaded datasets in a copy, so that the
/// caller's record is as it was afterwards, also when an exception passes.
template <typename Work>
nb::object with_data_record_kept(Work&& work) {
    const nb::object context = imported("corvex.data.context", "_default_context");
    const nb::object loaded = pyglue::builtin("set")(context.attr("_loaded_datasets"));
    return pyglue::with(context.attr("override")(nb::arg("_loaded_datasets") = loaded),
                        [&](const nb::object& /*entered*/) { return work(); });
}

} // namespace corvex::report
