#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The class `ReportExecution`.
nanobind::object make_execution_class(const nanobind::dict& globals);

} // namespace corvex::report
