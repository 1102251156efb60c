#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `get_metrics` and `_get_metrics`.
std::span<const pyglue::FunctionSpec> metrics_methods();

} // namespace corvex::report
