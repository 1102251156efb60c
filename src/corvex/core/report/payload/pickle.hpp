#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `to_pickle` and `from_pickle`.
std::span<const pyglue::FunctionSpec> pickle_methods();

} // namespace corvex::report
