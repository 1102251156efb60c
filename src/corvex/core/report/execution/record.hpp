#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// Construction of an execution record, its normalisation, and copies with changes.
std::span<const pyglue::FunctionSpec> record_methods();

} // namespace corvex::report
