#include "corvex/engine/portfolio/settings.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace corvex::engine::portfolio {

namespace {

void require(bool condition, const std::string& message) {
    if (!condition) {
        throw std::invalid_argument(message);
    }
}

void require_ratio(double value, const char* name) {
    require(value >= 0.0 && value < 1.0,
            std::string{name} + " must be in [0, 1), got " + std::to_string(value));
}

void require_stop(double value, const char* name) {
    require(value > 0.0, std::string{name} + " must be positive, got " + std::to_string(value));
}

void require_same_shape(const PriceTable& close, const PriceTable& other, const char* name,
                        bool needed) {
    require(!needed || !other.empty() || close.empty(),
            std::string{"the "} + name + " prices are needed");
    require(other.empty() ||
                (other.assets == close.assets && other.values.size() == close.values.size()),
            std::string{"the "} + name + " prices must have the shape of the close prices");
}

void validate_prices(const SimulationInput& input) {
    const bool touched = input.stops.touched && input.stops.any();
    require(input.close.assets > 0, "the price table has no assets");
    require(input.first_session <= input.close.sessions(), "first_session lies beyond the table");
    require_same_shape(input.close, input.fill, "fill", input.fill_at != FillAt::kClose);
    require_same_shape(input.close, input.open, "open", false);
    require_same_shape(input.close, input.high, "high", touched);
    require_same_shape(input.close, input.low, "low", touched);
    require(input.position.empty() ||
                input.position.size() ==
                    input.close.values.size() - input.first_session * input.close.assets,
            "the position table does not fit the price table");
}

void validate_rebalances(const SimulationInput& input) {
    const std::size_t count = input.signal_session.size();
    const auto sessions = static_cast<std::int64_t>(input.close.sessions());
    require(input.target.size() == count * input.close.assets,
            "the target table must have one row for each signal and one column for each asset");
    require(std::ranges::is_sorted(input.signal_session), "the signal sessions must be ascending");
    require(count == 0 ||
                (input.signal_session.front() >= -1 && input.signal_session.back() < sessions),
            "a signal session lies outside the price table");
    require(std::ranges::all_of(input.target, [](double w) { return std::isfinite(w); }),
            "the target weights must be finite");
    for (std::size_t row = 0; row < count; ++row) {
        if (input.signal_session[row] + 1 >= static_cast<std::int64_t>(input.first_session)) {
            break;
        }
        const std::span weights{input.target_row(row), input.close.assets};
        require(std::ranges::all_of(weights, [](double w) { return w == 0.0; }),
                "a rebalance with a weight fills before first_session");
    }
}

} // namespace

void validate(const SimulationInput& input) {
    validate_prices(input);
    validate_rebalances(input);
    require_ratio(input.costs.fee, "fee_ratio");
    require_ratio(input.costs.tax, "tax_ratio");
    require_ratio(input.costs.slippage, "slippage_ratio");
    require(input.costs.fee + input.costs.tax < 1.0, "fee_ratio + tax_ratio must be below 1");
    require_stop(input.stops.loss, "stop_loss");
    require_stop(input.stops.profit, "take_profit");
    require_stop(input.stops.trail, "trail_stop");
    require(input.stops.cooldown >= 0,
            "stop_cooldown must not be negative, got " + std::to_string(input.stops.cooldown));
}

} // namespace corvex::engine::portfolio
