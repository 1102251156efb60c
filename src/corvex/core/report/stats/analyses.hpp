#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// Named analyses of the package `corvex.analysis`.
std::span<const pyglue::FunctionSpec> analysis_methods();

/// The strategy's largest drawdowns, as `run_analysis` finds them. Where that is the module's own
/// and the analysis can tell them apart, those of the benchmark are not worked out beside them.
nanobind::object strategy_drawdowns(nanobind::handle report);

} // namespace corvex::report
