#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `position_info2`, `_position_info2` and `format_resample`.
std::span<const pyglue::FunctionSpec> position_info_methods();

} // namespace corvex::report
