#pragma once

#include "corvex/engine/portfolio/simulator.hpp"

#include "bytes.hpp"

namespace corvex::fuzz {

/// Goes through what an account wrote down, and ends the process where it does not add up or an
/// order is not within the terms. For values that doubles can count.
void check_account(const engine::SimulationInput& input, const engine::SimulationResult& result);

} // namespace corvex::fuzz
