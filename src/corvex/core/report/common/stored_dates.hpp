#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// Raises ValueError: "<what> should be <accepted>, got <value>".
[[noreturn]] void raise_unreadable(const char* what, const char* accepted, nanobind::handle value);

/// A Timestamp from POSIX seconds (naive, UTC) or ISO-8601 text (with the zone it names).
/// @throws nanobind::python_error ValueError for anything else.
nanobind::object read_date(const char* what, nanobind::handle stored);

} // namespace corvex::report
