#pragma once

#include "corvex/engine/portfolio/costs.hpp"

#include <cmath>
#include <cstdint>
#include <limits>

namespace corvex::engine::inline v1 {

/// Fractions of the first fill price of a round trip; infinity = off.
struct StopRules {
    double loss = std::numeric_limits<double>::infinity();
    double profit = std::numeric_limits<double>::infinity();
    double trail = std::numeric_limits<double>::infinity(); ///< of the best price since entry
    bool touched = false;      ///< filled inside the session, instead of checked on closes
    std::int64_t cooldown = 0; ///< how many rebalances a stopped asset stays out of

    [[nodiscard]] bool any() const {
        return std::isfinite(loss) || std::isfinite(profit) || std::isfinite(trail);
    }
};

/// What a run can be varied by, beside its weights.
struct Options {
    Costs costs{};
    StopRules stops{};
};

/// Calls visit(name, member) for each option: the one list of their names.
template <typename Visit>
void for_each_option(Options& options, const Visit& visit) {
    visit("fee_ratio", options.costs.fee);
    visit("tax_ratio", options.costs.tax);
    visit("slippage_ratio", options.costs.slippage);
    visit("stop_loss", options.stops.loss);
    visit("take_profit", options.stops.profit);
    visit("trail_stop", options.stops.trail);
    visit("touched_exit", options.stops.touched);
    visit("stop_cooldown", options.stops.cooldown);
}

/// @throws std::invalid_argument for a ratio or a stop out of range.
void validate(const Options& options);

} // namespace corvex::engine::inline v1
