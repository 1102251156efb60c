#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `position_info`, the older flat view.
std::span<const pyglue::FunctionSpec> legacy_position_methods();

} // namespace corvex::report
