#include "corvex/engine/portfolio/stop_monitor.hpp"

#include <algorithm>
#include <limits>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

} // namespace

StopMonitor::StopMonitor(const PriceSet& prices, const StopRules& rules)
    : prices_{prices}, rules_{rules} {
    const std::size_t count = rules_.any() ? prices.assets() : 0;
    for (auto* values : {&side_, &loss_level_, &profit_level_, &best_, &trail_}) {
        values->resize(count);
    }
    reached_.resize(count);
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
    reached_[asset] = -1;
}

void StopMonitor::split(std::size_t asset, double ratio) {
    if (active()) {
        loss_level_[asset] /= ratio;
        profit_level_[asset] /= ratio;
        best_[asset] /= ratio;
    }
}

void StopMonitor::enter(std::size_t asset, bool is_long, double fill_price,
                        std::size_t first_check) {
    const double side = is_long ? 1.0 : -1.0;
    side_[asset] = side;
    loss_level_[asset] = side * fill_price - fill_price * rules_.loss;
    profit_level_[asset] = side * fill_price + fill_price * rules_.profit;
    const bool trails = std::isfinite(rules_.trail);
    best_[asset] = trails ? side * fill_price : kInfinity;
    trail_[asset] = trails ? side * rules_.trail : 1.0;
    reached_[asset] = -1;
    scan_asset(asset, first_check);
}

void StopMonitor::check_closes(std::size_t session, std::size_t until,
                               std::vector<FiredStop>& fired) {
    for (const std::uint32_t asset : reached_in(session, until)) {
        const double price = range(asset, session).worst;
        const ExitReason reason = price <= loss_level_[asset]   ? ExitReason::kStopLoss
                                  : price <= trail_level(asset) ? ExitReason::kTrailStop
                                                                : ExitReason::kTakeProfit;
        fired.push_back({asset, reason});
    }
}

void StopMonitor::check_range(std::size_t session, std::size_t until,
                              std::vector<TouchedStop>& fired) {
    for (const std::uint32_t asset : reached_in(session, until)) {
        fired.push_back(touch(asset, session));
    }
}

/// Assets whose stop is reached in a session, ascending.
const std::vector<std::uint32_t>& StopMonitor::reached_in(std::size_t session, std::size_t until) {
    if (session >= block_end_) {
        block_begin_ = session;
        block_end_ = std::min({session + kBlock, until, prices_.sessions()});
        for (auto& hits : hits_) {
            hits.clear();
        }
        rules_.touched ? scan_ranges() : scan_closes();
    }
    current_.clear();
    for (const std::uint32_t asset : hits_[session - block_begin_]) {
        if (reached_[asset] == static_cast<std::int64_t>(session)) {
            reached_[asset] = -1;
            current_.push_back(asset);
        }
    }
    std::ranges::sort(current_);
    return current_;
}

std::size_t StopMonitor::quiet_until(std::size_t session) const {
    while (session < block_end_ && hits_[session - block_begin_].empty()) {
        ++session;
    }
    return session;
}

StopMonitor::Range StopMonitor::range(std::size_t asset, std::size_t session) const {
    const double side = side_[asset];
    if (!rules_.touched) {
        const double price = side * prices_.close().at(session, asset);
        return {price, price};
    }
    const double high = side * prices_.high().at(session, asset);
    const double low = side * prices_.low().at(session, asset);
    return side > 0.0 ? Range{low, high} : Range{high, low};
}

CORVEX_VECTOR_CLONES
void StopMonitor::scan_closes() {
    std::size_t asset = 0;
    for (; asset + kLanes <= side_.size(); asset += kLanes) {
        scan_strip(asset, [&](std::size_t session, const Lanes& side, Lanes& worst, Lanes& best) {
            load(prices_.close().row(session) + asset, worst);
            worst *= side;
            best = worst;
        });
    }
    for (; asset < side_.size(); ++asset) {
        scan_asset(asset, block_begin_);
    }
}

CORVEX_VECTOR_CLONES
void StopMonitor::scan_ranges() {
    std::size_t asset = 0;
    for (; asset + kLanes <= side_.size(); asset += kLanes) {
        scan_strip(asset, [&](std::size_t session, const Lanes& side, Lanes& worst, Lanes& best) {
            Lanes high;
            Lanes low;
            load(prices_.high().row(session) + asset, high);
            load(prices_.low().row(session) + asset, low);
            worst = side * (side > 0.0 ? low : high);
            best = side * (side > 0.0 ? high : low);
        });
    }
    for (; asset < side_.size(); ++asset) {
        scan_asset(asset, block_begin_);
    }
}

/// Looks through the block for four assets. Nearly always the lowest and the highest price of the
/// block show that no level can be reached: then they are all that is looked at.
template <typename Prices>
inline void StopMonitor::scan_strip(std::size_t asset, const Prices& prices) {
    Lanes side;
    load(&side_[asset], side);
    if (!any(side != 0.0)) {
        return;
    }
    Lanes loss;
    Lanes profit;
    Lanes trail;
    Lanes best;
    load(&loss_level_[asset], loss);
    load(&profit_level_[asset], profit);
    load(&trail_[asset], trail);
    load(&best_[asset], best);
    Lanes lowest = Lanes{} + kInfinity;
    Lanes highest = best;
    Lanes reach = Lanes{} - kInfinity;
    for (std::size_t session = block_begin_; session < block_end_; ++session) {
        Lanes worst;
        Lanes best_now;
        prices(session, side, worst, best_now);
        lowest = worst < lowest ? worst : lowest;
        highest = best_now > highest ? best_now : highest;
        reach = best_now > reach ? best_now : reach;
    }
    // The trailing level only rises with the best price.
    if (!any((lowest <= loss) | (lowest <= highest - highest * trail) | (reach >= profit))) {
        store(highest, &best_[asset]);
        return;
    }
    find_reached(asset, prices);
}

/// The same session by session. The best price of an asset that reaches a stop stays that of the
/// session before, which the level of the stop counts from; it is kept beside the running one, so
/// that the next session need not wait for the comparison.
template <typename Prices>
inline void StopMonitor::find_reached(std::size_t asset, const Prices& prices) {
    Lanes side;
    load(&side_[asset], side);
    Lanes loss;
    Lanes profit;
    Lanes trail;
    Lanes best;
    load(&loss_level_[asset], loss);
    load(&profit_level_[asset], profit);
    load(&trail_[asset], trail);
    load(&best_[asset], best);
    Lanes best_before = best;
    LaneMask reached{};
    LaneMask first = LaneMask{} - 1;
    for (std::size_t session = block_begin_; session < block_end_; ++session) {
        Lanes worst;
        Lanes best_now;
        prices(session, side, worst, best_now);
        const LaneMask hit =
            (worst <= loss) | (worst <= best - best * trail) | (best_now >= profit);
        const LaneMask now = hit & ~reached;
        first = now != 0 ? LaneMask{} + static_cast<std::int64_t>(session) : first;
        best_before = now != 0 ? best : best_before;
        reached |= hit;
        best = best_now > best ? best_now : best;
    }
    best = reached != 0 ? best_before : best;
    store(best, &best_[asset]);
    for (std::size_t lane = 0; any(reached) && lane < kLanes; ++lane) {
        if (reached[lane] != 0) {
            note(asset + lane, static_cast<std::size_t>(first[lane]));
        }
    }
}

/// The same for one asset that enters inside the block, or lies beyond the last strip.
void StopMonitor::scan_asset(std::size_t asset, std::size_t begin) {
    for (std::size_t session = begin; session < block_end_; ++session) {
        const auto [worst, best] = range(asset, session);
        if (worst <= loss_level_[asset] || worst <= trail_level(asset) ||
            best >= profit_level_[asset]) {
            note(asset, session);
            return;
        }
        best_[asset] = best > best_[asset] ? best : best_[asset];
    }
}

void StopMonitor::note(std::size_t asset, std::size_t session) {
    reached_[asset] = static_cast<std::int64_t>(session);
    hits_[session - block_begin_].push_back(static_cast<std::uint32_t>(asset));
}

TouchedStop StopMonitor::touch(std::size_t asset, std::size_t session) const {
    const auto [worst, best] = range(asset, session);
    const double open =
        prices_.open().empty() ? kMissing : side_[asset] * prices_.open().at(session, asset);
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
        return at(is_missing(best) ? lower : std::min(lower, best), loss);
    }
    return at(is_missing(worst) ? profit_level_[asset] : std::max(profit_level_[asset], worst),
              ExitReason::kTakeProfit);
}

} // namespace corvex::engine::inline v1
