#include "corvex/engine/portfolio/simulation_input.hpp"

#include "corvex/engine/portfolio/require.hpp"
#include "corvex/engine/series/curve.hpp"

#include <algorithm>

namespace corvex::engine::inline v1 {

namespace {

void validate_tables(const SimulationInput& input) {
    const PriceSet& prices = input.prices;
    const StopRules& stops = input.options.stops;
    if (stops.touched && stops.any() && !prices.close().empty()) {
        require(!prices.high().empty(), "the high prices are needed");
        require(!prices.low().empty(), "the low prices are needed");
    }
    require(input.plan.first_session <= prices.sessions(), "first_session lies beyond the table");
    const std::size_t rows = prices.sessions() - input.plan.first_session;
    require(input.record.position.empty() || input.record.position.size() == rows * prices.assets(),
            "the position table does not fit the price table");
}

void validate_plan(const Plan& plan, const PriceSet& prices) {
    const auto sessions = static_cast<std::int64_t>(prices.sessions());
    const auto& signals = plan.signal_session;
    require(plan.target.size() == plan.rebalances() * prices.assets(),
            "the target table must have one row for each signal and one column for each asset");
    require(std::ranges::is_sorted(signals), "the signal sessions must be ascending");
    require(signals.empty() || (signals.front() >= -1 && signals.back() < sessions),
            "a signal session lies outside the price table");
    for (std::size_t row = 0; row < plan.rebalances(); ++row) {
        if (signals[row] + 1 >= static_cast<std::int64_t>(plan.first_session)) {
            break;
        }
        require(std::ranges::all_of(plan.weights(row), [](double w) { return w == 0.0; }),
                "a rebalance with a weight fills before first_session");
    }
}

} // namespace

void require_finite(std::span<const double> weights) {
    require(all_finite(weights), "the target weights must be finite");
}

void validate(const SimulationInput& input) {
    validate_tables(input);
    validate_plan(input.plan, input.prices);
    validate(input.options);
    if (input.account != nullptr) {
        validate(*input.account, input.prices.sessions(), input.prices.assets());
    }
}

} // namespace corvex::engine::inline v1
