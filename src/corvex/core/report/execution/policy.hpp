#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// When an execution record rebalances and whether a stop has fired.
std::span<const pyglue::FunctionSpec> policy_methods();

} // namespace corvex::report
