#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// Readers of an execution record, for its own dictionary and the older position-info-2 layout.
std::span<const pyglue::FunctionSpec> deserialise_methods();

} // namespace corvex::report
