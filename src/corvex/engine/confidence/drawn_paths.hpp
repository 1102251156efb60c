#pragma once

#include "corvex/engine/confidence/block_draw.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// What may happen over the next bars if returns come as they came, in blocks.
struct DrawnPaths {
    std::vector<double> wealth;  ///< draws x points: growth of 1 at each of the asked bars
    std::vector<double> deepest; ///< draws x horizons: largest drawdown by then, negative or 0
    std::vector<double> longest; ///< draws x horizons: most bars below the highest value by then
};

/// Draws paths as long as the last point or horizon. A shorter path is the beginning of a longer.
/// @param returns   at least one; fractions above or equal to -1, none missing
/// @param points    bars after which the wealth is noted, ascending
/// @param horizons  bars after which the falls are noted, ascending
/// @throws std::invalid_argument for inputs out of these bounds
DrawnPaths draw_paths(std::span<const double> returns, std::span<const std::size_t> points,
                      std::span<const std::size_t> horizons, const Resampling& how);

} // namespace corvex::engine::inline v1
