#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `from_cloud`: reads back the execution state of a published report.
std::span<const pyglue::FunctionSpec> from_cloud_methods();

} // namespace corvex::report
