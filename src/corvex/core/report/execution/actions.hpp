#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// An action as position records tell it ("entry", "exit_sl") from the one in memory ("enter",
/// "sl"), and back. What is in neither vocabulary stays as it is; what is no text becomes "_".
nanobind::object position_action(nanobind::handle action);
nanobind::object parsed_action(nanobind::handle stored);

} // namespace corvex::report
