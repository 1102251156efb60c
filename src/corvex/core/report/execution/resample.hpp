#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// A rebalance rule in its stored form: None and texts as they are, dates as POSIX seconds. A naive
/// Timestamp counts as UTC, a naive datetime as local time, as their own `timestamp()` does.
nanobind::object stored_resample(nanobind::handle resample);

/// The inverse: dates come back as a list of naive UTC Timestamps.
/// @throws nanobind::python_error ValueError for anything that stored_resample does not write.
nanobind::object read_resample(nanobind::handle stored);

} // namespace corvex::report
