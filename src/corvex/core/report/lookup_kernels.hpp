#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `query_data_int64` and `query_data_int32`.
std::span<const pyglue::FunctionSpec> lookup_kernels();

} // namespace corvex::report
