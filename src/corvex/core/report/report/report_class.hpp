#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The class `Report`.
nanobind::object make_report_class(const nanobind::dict& globals);

} // namespace corvex::report
