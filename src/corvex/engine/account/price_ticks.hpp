#pragma once

#include <cmath>
#include <span>

namespace corvex::engine::inline v1 {

/// From a price on, prices are multiples of a tick.
struct PriceTick {
    double from;
    double tick;
};

/// Nearer than this part of a tick to a whole number of ticks is that number.
inline constexpr double kTickRounding = 1e-9;

/// The last price within a limit: below an upper one, above a lower one. Without ticks it is the
/// limit itself.
inline double within_limit(std::span<const PriceTick> ticks, double limit, bool upper) {
    double tick = 0.0;
    for (const PriceTick& step : ticks) {
        tick = step.from <= limit ? step.tick : tick;
    }
    if (!(tick > 0.0)) {
        return limit;
    }
    const double steps = limit / tick;
    return (upper ? std::floor(steps + kTickRounding) : std::ceil(steps - kTickRounding)) * tick;
}

} // namespace corvex::engine::inline v1
