#include "corvex/engine/portfolio/options.hpp"

#include "corvex/engine/portfolio/require.hpp"

#include <string>

namespace corvex::engine::inline v1 {

namespace {

void require_ratio(double value, const char* name) {
    require(value >= 0.0 && value < 1.0,
            std::string{name} + " must be in [0, 1), got " + std::to_string(value));
}

void require_stop(double value, const char* name) {
    require(value > 0.0, std::string{name} + " must be positive, got " + std::to_string(value));
}

} // namespace

void validate(const Options& options) {
    const auto& [costs, stops] = options;
    require_ratio(costs.fee, "fee_ratio");
    require_ratio(costs.tax, "tax_ratio");
    require_ratio(costs.slippage, "slippage_ratio");
    require(costs.fee + costs.tax < 1.0, "fee_ratio + tax_ratio must be below 1");
    require_stop(stops.loss, "stop_loss");
    require_stop(stops.profit, "take_profit");
    require_stop(stops.trail, "trail_stop");
    require(stops.cooldown >= 0,
            "stop_cooldown must not be negative, got " + std::to_string(stops.cooldown));
}

} // namespace corvex::engine::inline v1
