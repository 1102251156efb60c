#pragma once

#include "corvex/engine/core/dates.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// One stay of a curve below its highest value so far. All positions are rows of the curve.
struct Episode {
    std::size_t peak;   ///< row of the high that it falls from
    std::size_t start;  ///< first row below that high
    std::size_t valley; ///< row of the lowest value (the first, where it is met twice)
    std::size_t end;    ///< row that reaches the high again; the last row while still below it
    double depth;       ///< lowest value / high - 1, negative
    bool recovered;
};

/// What a curve's episodes amount to, gathered without storing them.
struct DrawdownSummary {
    double max;      ///< deepest value / high - 1; 0 when the curve never falls, NaN when empty
    double average;  ///< mean depth of the episodes; NaN when there is none
    double avg_days; ///< mean days from `start` to `end`; NaN when there is none
};

/// All functions below take a curve without missing values.

/// The episodes in the order in which they happened.
std::vector<Episode> drawdown_episodes(std::span<const double> values);

/// The `count` deepest episodes, deepest first; equally deep ones in the order of time. Keeps a
/// heap of `count` while it walks the curve, so nothing else is stored or sorted.
std::vector<Episode> largest_episodes(std::span<const double> values, std::size_t count);

/// @param times  as long as `values`
DrawdownSummary summarise_drawdowns(std::span<const double> values, std::span<const Nanos> times);

} // namespace corvex::engine::inline v1
