#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The label of the last row of a weight table in which any weight differs from the row before it
/// (missing weights do not count), None where none does.
nanobind::object last_change(nanobind::handle position);

} // namespace corvex::report
