#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// The dictionary forms of an execution record: its own, and the older position-info-2 layout.
std::span<const pyglue::FunctionSpec> serialise_methods();

} // namespace corvex::report
