#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// @throws a Python ValueError "<where> should be <accepted>, got <type>" when `value` is no
///         execution record
void require_execution(nanobind::handle value, const nanobind::object& where, const char* accepted);

/// How such an error names one record of a dictionary of them: "execution[<key>]".
nanobind::object execution_item(nanobind::handle key);

} // namespace corvex::report
