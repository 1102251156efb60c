#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// Named analyses of the package `corvex.analysis`.
std::span<const pyglue::FunctionSpec> analysis_methods();

/// The strategy's largest drawdowns, as `run_analysis` finds them. Where that is the module's own
/// and the analysis can tell them apart, those of the benchmark are not worked out beside them;
/// they come from `curve`, the report's daily curve as arrays, where that is not None.
nanobind::object strategy_drawdowns(nanobind::handle report, const nanobind::object& curve);

} // namespace corvex::report
