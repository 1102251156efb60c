// Orders that met a missing price: each waits for the next one and then trades its asset alone.
#include "corvex/engine/portfolio/simulator_state.hpp"

#include <algorithm>
#include <iterator>

namespace corvex::engine::portfolio {

using trades::ExitReason;

void Simulator::cancel_all_waiting() {
    for (const std::uint32_t asset : waiting_) {
        out_.waiting_rebalance[asset] = -1;
    }
    waiting_.clear();
}

void Simulator::cancel_waiting(std::size_t asset) {
    if (out_.waiting_rebalance[asset] >= 0) {
        out_.waiting_rebalance[asset] = -1;
        std::erase(waiting_, static_cast<std::uint32_t>(asset));
    }
}

void Simulator::fill_waiting(std::size_t session) {
    std::vector<std::uint32_t> ready;
    std::ranges::copy_if(waiting_, std::back_inserter(ready), [&](std::uint32_t asset) {
        return !is_missing(fill_price(asset, session));
    });
    if (ready.empty()) {
        return;
    }
    excursions_.observe_before(fills_at(FillAt::kClose) ? session + 1 : session);
    // Sells first, so that their proceeds serve the buys.
    double equity = equity_at_fill(session);
    std::ranges::stable_partition(ready, [&](std::uint32_t asset) {
        const auto row = static_cast<std::size_t>(out_.waiting_rebalance[asset]);
        return in_.target_row(row)[asset] * equity <
               book_.shares(asset) * fill_price(asset, session);
    });
    for (const std::uint32_t asset : ready) {
        equity -= trade_waiting(asset, session, equity);
    }
}

/// The change in value that brings one asset alone to weight x the equity after its own costs.
double Simulator::waiting_change(double held, double weight, double equity) const {
    const bool buy = weight * equity > held;
    const double rate = buy ? in_.costs.buy_rate() : -in_.costs.sell_rate();
    const double change = (weight * equity - held) / (1.0 + rate * weight);
    if (!buy) {
        return change;
    }
    // Covering a short is never held back; what goes beyond it stays within cash.
    const double floor = std::min(0.0, 1.0 - total_weight_) * equity;
    const double cover = std::min(change, std::max(0.0, -held));
    const double room = (book_.cash() - floor) / (1.0 + rate) - cover;
    // Cash that is a mere rounding error buys nothing, or it would open a position of dust.
    return cover + (room > 1e-12 * equity ? std::min(change - cover, room) : 0.0);
}

double Simulator::trade_waiting(std::size_t asset, std::size_t session, double equity) {
    const std::int64_t row = out_.waiting_rebalance[asset];
    const double weight = in_.target_row(static_cast<std::size_t>(row))[asset];
    const double price = fill_price(asset, session);
    const double before = book_.shares(asset);
    const double held = before * price;
    cancel_waiting(asset);
    if (equity <= 0.0) {
        out_of_equity_ = true;
        return 0.0;
    }
    const double change = waiting_change(held, weight, equity);
    const double value = weight == 0.0 ? 0.0 : held + change;
    book_.trade(asset, value, price, session, paid_);
    fills_.add(session, asset, before, book_.shares(asset), price);
    book_.forgive_rounding(equity);
    if (book_.shares(asset) != 0.0) {
        out_.weights_in_force[asset] = weight;
    }
    if (!same_side(before, book_.shares(asset))) {
        position_changed(
            {asset,
             session,
             price,
             weight,
             before,
             {ExitReason::kRebalance, in_.signal_session[static_cast<std::size_t>(row)], row}});
    }
    return change > 0.0 ? change * in_.costs.buy_rate() : -change * in_.costs.sell_rate();
}

double Simulator::equity_at_fill(std::size_t session) const {
    double equity = book_.cash();
    for (std::size_t asset = 0; asset < assets_; ++asset) {
        if (book_.shares(asset) != 0.0) {
            equity += book_.shares(asset) * fill_value_price(asset, session);
        }
    }
    return equity;
}

} // namespace corvex::engine::portfolio
