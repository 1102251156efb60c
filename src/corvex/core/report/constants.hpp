#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

inline constexpr const char* kExecutionSchemaVersion = "report.execution.v1";

/// Schema tags, endpoints and switches, bound in a fixed order.
void bind_constants(nanobind::dict& globals);

} // namespace corvex::report
