#pragma once

#include "corvex/engine/trades/round_trip.hpp"

#include <nanobind/nanobind.h>

#include <cstdint>
#include <span>

namespace corvex::bindings {

/// Round trips as a dict of columns, one numpy array for each field.
/// @param last_session  up to which an open one has been held.
nanobind::dict trade_columns(std::span<const engine::RoundTrip> trips, std::int64_t last_session);

} // namespace corvex::bindings
