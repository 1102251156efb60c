#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `calculate_current_trades`.
std::span<const pyglue::FunctionSpec> current_trade_methods();

} // namespace corvex::report
