#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// Statistics of the strategy and of its benchmark.
std::span<const pyglue::FunctionSpec> statistics_methods();

/// `_get_stats`, which the class wraps in a cache.
const pyglue::FunctionSpec& cached_statistics();

} // namespace corvex::report
