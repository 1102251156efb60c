#pragma once

#include "corvex/pyglue/call.hpp"

namespace corvex::report {

/// `_normalize_position_exit_reason`.
const pyglue::FunctionSpec& exit_reason_method();

} // namespace corvex::report
