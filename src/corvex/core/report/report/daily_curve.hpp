#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The last value of each calendar day of a curve, rebased.
nanobind::object daily_curve(nanobind::handle creturn);

} // namespace corvex::report
