#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// The dictionaries a report travels as, and the reading of their envelope.
std::span<const pyglue::FunctionSpec> payload_methods();

} // namespace corvex::report
