#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The signal date that a weight series bears as its name, None where it bears none. Texts such as
/// "weight" and a missing date are no dates.
nanobind::object signal_date(nanobind::handle weights);

/// Whether a value is a date and time, and not the missing one.
bool is_date(nanobind::handle value);

/// The date itself, None for anything else: the text of the missing one could not be read back.
nanobind::object date_or_none(nanobind::handle value);

/// Gives a weight series its signal date as its name, where there is one.
void set_signal_date(nanobind::handle weights, nanobind::handle date);

} // namespace corvex::report
