#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `upload`.
std::span<const pyglue::FunctionSpec> upload_methods();

} // namespace corvex::report
