#pragma once

#include "corvex/engine/portfolio/costs.hpp"
#include "corvex/engine/portfolio/price_table.hpp"

#include <cmath>
#include <cstdint>
#include <limits>
#include <span>

namespace corvex::engine::portfolio {

/// When in a session orders fill: it decides whether the session's own move and its range count.
enum class FillAt { kClose, kOpen, kOther };

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

struct SimulationInput {
    PriceTable close;
    PriceTable fill; ///< unused when orders fill at the close
    PriceTable open; ///< open, high, low: with touched stops only; open may be empty
    PriceTable high;
    PriceTable low;
    std::span<const double> target;               ///< rebalances x assets, no NaN
    std::span<const std::int64_t> signal_session; ///< ascending, -1 = before the table
    std::size_t first_session = 0;
    FillAt fill_at = FillAt::kClose;
    Costs costs;
    StopRules stops;
    bool record_trades = true;
    bool record_excursions = true;
    bool record_fills = false;
    /// Receives the target weights in force after each close, from first_session on; empty = off.
    std::span<double> position;

    [[nodiscard]] const PriceTable& fill_prices() const {
        return fill_at == FillAt::kClose ? close : fill;
    }
    [[nodiscard]] const double* target_row(std::size_t rebalance) const {
        return target.data() + rebalance * close.assets;
    }
};

/// @throws std::invalid_argument for shapes that do not fit, ratios out of range, signals out of
///         order, a missing weight, or a weight that would fill before first_session.
void validate(const SimulationInput& input);

} // namespace corvex::engine::portfolio
