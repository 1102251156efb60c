#include "corvex/engine/portfolio/stop_monitor.hpp"

#include <algorithm>
#include <limits>

namespace corvex::engine::portfolio {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
using trades::ExitReason;

} // namespace

StopMonitor::StopMonitor(const StopRules& rules, std::size_t assets) : rules_{rules} {
    const std::size_t count = rules.any() ? assets : 0;
    side_.resize(count);
    loss_level_.resize(count);
    profit_level_.resize(count);
    best_.resize(count);
    trail_.resize(count);
    for (std::size_t asset = 0; asset < count; ++asset) {
        leave(asset);
    }
}

void StopMonitor::leave(std::size_t asset) {
    side_[asset] = 0.0;
    loss_level_[asset] = -kInfinity;
    profit_level_[asset] = kInfinity;
    // An infinite best price gives the trailing level infinity - infinity: NaN, never reached.
    best_[asset] = kInfinity;
    trail_[asset] = 1.0;
}

void StopMonitor::enter(std::size_t asset, bool is_long, double fill_price) {
    const double side = is_long ? 1.0 : -1.0;
    side_[asset] = side;
    loss_level_[asset] = side * fill_price - fill_price * rules_.loss;
    profit_level_[asset] = side * fill_price + fill_price * rules_.profit;
    const bool trails = std::isfinite(rules_.trail);
    best_[asset] = trails ? side * fill_price : kInfinity;
    trail_[asset] = trails ? side * rules_.trail : 1.0;
}

void StopMonitor::check_closes(const double* close, std::vector<FiredStop>& fired) {
    const std::size_t count = side_.size();
    std::int64_t reached = 0;
    for (std::size_t asset = 0; asset < count; ++asset) {
        const double price = side_[asset] * close[asset];
        reached += static_cast<std::int64_t>((price <= loss_level_[asset]) |
                                             (price <= trail_level(asset)) |
                                             (price >= profit_level_[asset]));
    }
    for (std::size_t asset = 0; reached > 0 && asset < count; ++asset) {
        const double price = side_[asset] * close[asset];
        if (price <= loss_level_[asset]) {
            fired.push_back({static_cast<std::uint32_t>(asset), ExitReason::kStopLoss});
        } else if (price <= trail_level(asset)) {
            fired.push_back({static_cast<std::uint32_t>(asset), ExitReason::kTrailStop});
        } else if (price >= profit_level_[asset]) {
            fired.push_back({static_cast<std::uint32_t>(asset), ExitReason::kTakeProfit});
        }
    }
    if (std::isfinite(rules_.trail)) {
        for (std::size_t asset = 0; asset < count; ++asset) {
            const double price = side_[asset] * close[asset];
            best_[asset] = price > best_[asset] ? price : best_[asset];
        }
    }
}

void StopMonitor::check_range(const double* open, const double* high, const double* low,
                              std::vector<TouchedStop>& fired) {
    const std::size_t count = side_.size();
    const auto worst = [&](std::size_t asset) {
        return side_[asset] > 0.0 ? low[asset] : -high[asset];
    };
    const auto best = [&](std::size_t asset) {
        return side_[asset] > 0.0 ? high[asset] : -low[asset];
    };
    std::int64_t reached = 0;
    for (std::size_t asset = 0; asset < count; ++asset) {
        reached += static_cast<std::int64_t>((worst(asset) <= loss_level_[asset]) |
                                             (worst(asset) <= trail_level(asset)) |
                                             (best(asset) >= profit_level_[asset]));
    }
    for (std::size_t asset = 0; reached > 0 && asset < count; ++asset) {
        if (worst(asset) <= loss_level_[asset] || worst(asset) <= trail_level(asset) ||
            best(asset) >= profit_level_[asset]) {
            const double quote = open == nullptr ? std::numeric_limits<double>::quiet_NaN()
                                                 : side_[asset] * open[asset];
            fired.push_back(touch(asset, quote, worst(asset), best(asset)));
        }
    }
    if (std::isfinite(rules_.trail)) {
        for (std::size_t asset = 0; asset < count; ++asset) {
            best_[asset] = best(asset) > best_[asset] ? best(asset) : best_[asset];
        }
    }
}

TouchedStop StopMonitor::touch(std::size_t asset, double open, double worst, double best) const {
    // The nearer of the two lower levels is met first; NaN (no trailing stop) never wins.
    const bool trails = trail_level(asset) > loss_level_[asset];
    const double lower = trails ? trail_level(asset) : loss_level_[asset];
    const ExitReason loss = trails ? ExitReason::kTrailStop : ExitReason::kStopLoss;
    const auto at = [&](double price, ExitReason reason) {
        return TouchedStop{static_cast<std::uint32_t>(asset), side_[asset] * price, reason};
    };
    if (open <= lower) {
        return at(open, loss);
    }
    if (open >= profit_level_[asset]) {
        return at(open, ExitReason::kTakeProfit);
    }
    if (worst <= lower) {
        return at(std::isnan(best) ? lower : std::min(lower, best), loss);
    }
    return at(std::isnan(worst) ? profit_level_[asset] : std::max(profit_level_[asset], worst),
              ExitReason::kTakeProfit);
}

} // namespace corvex::engine::portfolio
