#pragma once

#include "corvex/pyglue/objects.hpp"

#include <array>

namespace corvex::report {

/// Actions of a stop-loss or take-profit that fired; the underscore tells that a rebalance falls on
/// the same session.
inline constexpr std::array<const char*, 4> kStops{"sl_", "tp_", "sl", "tp"};

bool is_stop(nanobind::handle action);

/// Whether an action tells of an exit that lies in the past, whatever its reason.
bool is_past_exit(nanobind::handle action);

/// An action as position records tell it ("entry", "exit_sl") from the one in memory ("enter",
/// "sl"), and back. What is in neither vocabulary stays as it is; what is no text becomes "_".
nanobind::object position_action(nanobind::handle action);
nanobind::object parsed_action(nanobind::handle stored);

} // namespace corvex::report
