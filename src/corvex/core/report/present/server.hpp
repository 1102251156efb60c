#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `start_server` and `check_environment`.
std::span<const pyglue::FunctionSpec> server_functions();

} // namespace corvex::report
