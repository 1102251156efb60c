#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// Named analyses of the package `corvex.analysis`.
std::span<const pyglue::FunctionSpec> analysis_methods();

} // namespace corvex::report
