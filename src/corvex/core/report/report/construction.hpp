#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// The constructor of `Report`.
std::span<const pyglue::FunctionSpec> construction_methods();

} // namespace corvex::report
