#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// The plotly figures of the older view, as static methods.
std::span<const pyglue::FunctionSpec> figure_methods();

} // namespace corvex::report
