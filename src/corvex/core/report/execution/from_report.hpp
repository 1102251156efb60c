#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `from_report`: the execution state that a report stands for.
std::span<const pyglue::FunctionSpec> from_report_methods();

} // namespace corvex::report
