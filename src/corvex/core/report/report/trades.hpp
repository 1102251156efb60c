#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// The trade table: reading it, and adding to it what a table of dates x assets knows.
std::span<const pyglue::FunctionSpec> trade_methods();

} // namespace corvex::report
