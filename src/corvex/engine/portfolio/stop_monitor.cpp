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

bool StopMonitor::reaches(std::size_t asset, double worst, double best) const {
    return worst <= loss_level_[asset] || worst <= trail_level(asset) ||
           best >= profit_level_[asset];
}

/// Whether one of four assets reaches a level; the best prices follow if none does, since the
/// stops that fire still need the old ones.
[[gnu::always_inline]] inline bool StopMonitor::scan(std::size_t asset, const Lanes& worst,
                                                     const Lanes& best_now) {
    Lanes loss;
    Lanes profit;
    Lanes best;
    Lanes trail;
    load(&loss_level_[asset], loss);
    load(&profit_level_[asset], profit);
    load(&best_[asset], best);
    load(&trail_[asset], trail);
    if (any((worst <= loss) | (worst <= best - best * trail) | (best_now >= profit))) {
        return true;
    }
    best = best_now > best ? best_now : best;
    store(best, &best_[asset]);
    return false;
}

void StopMonitor::check_close(std::size_t asset, double close, std::vector<FiredStop>& fired) {
    const double price = side_[asset] * close;
    if (reaches(asset, price, price)) {
        const ExitReason reason = price <= loss_level_[asset]   ? ExitReason::kStopLoss
                                  : price <= trail_level(asset) ? ExitReason::kTrailStop
                                                                : ExitReason::kTakeProfit;
        fired.push_back({static_cast<std::uint32_t>(asset), reason});
    }
    best_[asset] = price > best_[asset] ? price : best_[asset];
}

CORVEX_VECTOR_CLONES
void StopMonitor::check_closes(const double* close, std::vector<FiredStop>& fired) {
    std::size_t asset = 0;
    for (; asset + kLanes <= side_.size(); asset += kLanes) {
        Lanes side;
        Lanes price;
        load(&side_[asset], side);
        load(close + asset, price);
        price *= side;
        if (scan(asset, price, price)) [[unlikely]] {
            for (std::size_t lane = asset; lane < asset + kLanes; ++lane) {
                check_close(lane, close[lane], fired);
            }
        }
    }
    for (; asset < side_.size(); ++asset) {
        check_close(asset, close[asset], fired);
    }
}

void StopMonitor::check_touch(std::size_t asset, double open, double high, double low,
                              std::vector<TouchedStop>& fired) {
    const double worst = side_[asset] > 0.0 ? low : -high;
    const double best = side_[asset] > 0.0 ? high : -low;
    if (reaches(asset, worst, best)) {
        fired.push_back(touch(asset, side_[asset] * open, worst, best));
    }
    best_[asset] = best > best_[asset] ? best : best_[asset];
}

CORVEX_VECTOR_CLONES
void StopMonitor::check_range(const double* open, const double* high, const double* low,
                              std::vector<TouchedStop>& fired) {
    const auto check = [&](std::size_t asset) {
        const double quote =
            open == nullptr ? std::numeric_limits<double>::quiet_NaN() : open[asset];
        check_touch(asset, quote, high[asset], low[asset], fired);
    };
    std::size_t asset = 0;
    for (; asset + kLanes <= side_.size(); asset += kLanes) {
        Lanes side;
        Lanes top;
        Lanes bottom;
        load(&side_[asset], side);
        load(high + asset, top);
        load(low + asset, bottom);
        const LaneMask is_long = side > 0.0;
        const Lanes worst = is_long ? bottom : -top;
        const Lanes best = is_long ? top : -bottom;
        if (scan(asset, worst, best)) [[unlikely]] {
            for (std::size_t lane = asset; lane < asset + kLanes; ++lane) {
                check(lane);
            }
        }
    }
    for (; asset < side_.size(); ++asset) {
        check(asset);
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
