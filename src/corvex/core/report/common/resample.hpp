#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// A rebalance rule in its stored form: None and texts as they are, dates as POSIX seconds. A
/// midnight of any zone names a date and is written as its midnight in UTC; what has no zone counts
/// as UTC.
nanobind::object stored_resample(nanobind::handle resample);

/// The inverse: dates come back as a list of naive Timestamps, moments as Timestamps in UTC.
/// @throws nanobind::python_error ValueError for anything that stored_resample does not write.
nanobind::object read_resample(nanobind::handle stored);

} // namespace corvex::report
