#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `find_latest_file` and the conversions of dates to and from stored forms.
std::span<const pyglue::FunctionSpec> date_functions();

} // namespace corvex::report
