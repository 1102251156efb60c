#pragma once

#include "corvex/engine/portfolio/result.hpp"
#include "corvex/engine/portfolio/settings.hpp"

namespace corvex::engine::portfolio {

/// Simulates a portfolio of target weights, starting from an equity of 1.
///
/// A session goes through these steps:
///  1. Assets whose prices ended in the session before are closed at that last price.
///  2. Touched stops fill, unless orders fill at the open.
///  3. Orders fill: exits of stops that fired on the last close, then the rebalance whose signal
///     came in the session before, or else orders that have waited for a price.
///  4. Touched stops fill, when orders fill at the open.
///  5. Holdings are marked at the close; stops on closes fire; equity at or below zero is ruin.
/// When orders fill at the close, a stop looks at the close before the orders fill, so a new
/// position is first checked one session later.
/// @throws std::invalid_argument as validate() does.
SimulationResult simulate(const SimulationInput& input);

} // namespace corvex::engine::portfolio
