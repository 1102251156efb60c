#pragma once

#include "corvex/engine/trades/round_trip.hpp"

#include <nanobind/nanobind.h>

#include <span>

namespace corvex::bindings {

/// Round trips as a dict of columns, one numpy array for each field.
nanobind::dict trade_columns(std::span<const engine::trades::RoundTrip> trips);

} // namespace corvex::bindings
