#pragma once

#include "corvex/engine/confidence/block_draw.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// What may happen over the next bars if returns come as they came, in blocks.
struct DrawnPaths {
    std::vector<double> wealth;  ///< draws x points: growth of 1 at each of the asked bars
    std::vector<double> deepest; ///< largest drawdown of each draw, negative or 0
    std::vector<double> longest; ///< most bars that a draw stays below its highest value
};

/// Draws paths of `bars` returns.
/// @param returns  at least one; fractions above or equal to -1, none missing
/// @param points   bars after which the wealth is noted, ascending, 0 to `bars`
/// @throws std::invalid_argument for inputs out of these bounds
DrawnPaths draw_paths(std::span<const double> returns, std::size_t bars,
                      std::span<const std::size_t> points, const Resampling& how);

} // namespace corvex::engine::inline v1
