// Orders: rebalances, and orders that met a missing price and then trade their asset alone.
#include "corvex/engine/portfolio/simulator.hpp"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>

namespace corvex::engine::inline v1 {

namespace {

/// Whether two holdings are on the same side of the market.
bool same_side(double a, double b) { return (a > 0.0 && b > 0.0) || (a < 0.0 && b < 0.0); }

ExitCause rebalance_cause(const SimulationInput& input, std::int64_t row) {
    return {ExitReason::kRebalance, input.plan.signal_session[static_cast<std::size_t>(row)], row};
}

} // namespace

double Simulator::fill_value_price(std::size_t asset, std::size_t session) const {
    const double price = fill_price(asset, session);
    return is_missing(price) ? book_.price_before(asset, session) : price;
}

void Simulator::rebalance(std::int64_t row, std::size_t session) {
    waiting_.restart(row);
    if (!cooldowns_.active()) {
        std::ranges::fill(out_.out_reason, ExitReason::kOpen);
    }
    for (std::size_t asset = 0; cooldowns_.active() && asset < assets_; ++asset) {
        if (!cooldowns_.keeps_out(asset)) {
            out_.out_reason[asset] = ExitReason::kOpen;
        }
    }
    const auto weights = cooldowns_.apply(in_.plan.weights(static_cast<std::size_t>(row)));
    require_finite(weights);
    if (account_ != nullptr) {
        rebalance_account(row, weights, session);
        return;
    }
    if (can_trade_rows(session) && rebalance_row(row, weights, session)) {
        return;
    }
    const double before = collect_rebalance(weights, session);
    const double after = before > 0.0 ? solver_.solve(before) : before;
    if (after <= 0.0) {
        waiting_.restart(row);
        out_of_equity_ = true;
        return;
    }
    out_.executed_rebalance = row;
    keep_shares_before_orders(session);
    excursions_.observe_before(fills_at(FillAt::kClose) ? session + 1 : session);
    apply_rebalance(row, session);
}

/// Whether each price of this session is one at which orders fill and which marks the holdings.
bool Simulator::can_trade_rows(std::size_t session) const {
    return fills_at(FillAt::kClose) && leaving_.empty() && in_.prices.sessions() > session;
}

/// Rebalances all assets at once; false, and nothing has happened, where one cannot be traded or
/// there is no equity to trade with.
bool Simulator::rebalance_row(std::int64_t row, std::span<const double> weights,
                              std::size_t session) {
    RowRebalance::Row values{book_.shares(), {in_.prices.fill().row(session), assets_}, weights};
    if (session + 1 < in_.prices.sessions() && next_rebalance_ < in_.plan.rebalances()) {
        values.next_prices = {in_.prices.fill().row(session + 1), assets_};
        values.next_weights = in_.plan.weights(next_rebalance_);
    }
    const RowRebalance::Sums sums = row_solver_.read(values);
    const double before = book_.cash() + sums.value;
    if (!(before > 0.0)) {
        return false; // missing, too
    }
    const RowRebalance::Solution solution = row_solver_.solve(values, before);
    if (!(solution.equity > 0.0)) {
        return false;
    }
    total_weight_ = sums.weight;
    out_.executed_rebalance = row;
    excursions_.observe_before(session + 1);
    const std::span<const double> shares = row_solver_.shares();
    for (std::size_t asset = 0; fills_.enabled() && asset < assets_; ++asset) {
        fills_.add(session, asset, book_.shares(asset), shares[asset], values.prices[asset]);
    }
    const ExitCause cause = rebalance_cause(in_, row);
    shares_before_.clear();
    for (const std::uint32_t asset : row_solver_.turned()) {
        shares_before_.push_back(book_.shares(asset));
    }
    book_.set_row(shares, row_solver_.turned().empty());
    std::memcpy(out_.weights_in_force.data(), weights.data(), weights.size_bytes());
    for (std::size_t k = 0; k < shares_before_.size(); ++k) {
        const std::size_t asset = row_solver_.turned()[k];
        position_changed(
            {asset, session, values.prices[asset], weights[asset], shares_before_[k], cause});
    }
    book_.set_cash(solution.trades.cash);
    paid_.add(in_.options.costs, solution.trades.bought, solution.trades.sold);
    return true;
}

double Simulator::collect_rebalance(std::span<const double> weights, std::size_t session) {
    solver_.clear();
    tradable_.clear();
    total_weight_ = 0.0;
    double equity = book_.cash();
    for (std::size_t asset = 0; asset < assets_; ++asset) {
        const double shares = book_.shares(asset);
        total_weight_ += weights[asset];
        if (weights[asset] == 0.0 && shares == 0.0) {
            continue;
        }
        const double price = fill_price(asset, session);
        if (is_missing(price)) {
            const double value = shares == 0.0 ? 0.0 : shares * book_.price_before(asset, session);
            solver_.add_stuck(value, weights[asset]);
            waiting_.add(asset, weights[asset]);
            equity += value;
            continue;
        }
        const double value = shares * price;
        solver_.add(value, price, weights[asset]);
        tradable_.push_back(static_cast<std::uint32_t>(asset));
        equity += value;
    }
    return equity;
}

void Simulator::apply_rebalance(std::int64_t row, std::size_t session) {
    const RebalanceSolver::Trades trades = solver_.trade();
    const ExitCause cause = rebalance_cause(in_, row);
    for (std::size_t k = 0; k < tradable_.size(); ++k) {
        const std::size_t asset = tradable_[k];
        const double held = book_.shares(asset);
        const double before = round_trip_shares(asset);
        const double after = solver_.shares(k);
        book_.set_shares(asset, after, solver_.price(k), session);
        fills_.add(session, asset, held, after, solver_.price(k));
        out_.weights_in_force[asset] = solver_.weight(k);
        if (!same_side(before, after)) {
            position_changed({asset, session, solver_.price(k), solver_.weight(k), before, cause});
        }
    }
    leaving_.clear();
    book_.holdings_changed();
    book_.set_cash(trades.cash);
    paid_.add(in_.options.costs, trades.bought, trades.sold);
}

void Simulator::fill_waiting(std::size_t session) {
    std::vector<std::uint32_t> ready;
    std::ranges::copy_if(waiting_.assets(), std::back_inserter(ready), [&](std::uint32_t asset) {
        return !is_missing(fill_price(asset, session)) && !pending_.has(asset);
    });
    if (ready.empty()) {
        return;
    }
    keep_shares_before_orders(session);
    excursions_.observe_before(fills_at(FillAt::kClose) ? session + 1 : session);
    if (account_ != nullptr) {
        fill_waiting_account(std::move(ready), session);
        return;
    }
    // Sells first, so that their proceeds serve the buys.
    double equity = equity_at_fill(session);
    std::ranges::stable_partition(ready, [&](std::uint32_t asset) {
        return waiting_.weight(asset) * equity < book_.shares(asset) * fill_price(asset, session);
    });
    for (const std::uint32_t asset : ready) {
        equity -= trade_waiting(asset, session, equity);
    }
}

/// The change in value that brings one asset alone to weight x the equity after its own costs.
double Simulator::waiting_change(double held, double weight, double equity) const {
    const bool buy = weight * equity > held;
    const double rate = buy ? in_.options.costs.buy_rate() : -in_.options.costs.sell_rate();
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
    const std::int64_t row = waiting_.rebalance();
    const double weight = waiting_.weight(asset);
    const double price = fill_price(asset, session);
    waiting_.cancel(asset);
    if (equity <= 0.0) {
        out_of_equity_ = true;
        return 0.0;
    }
    const double held = book_.shares(asset);
    const double before = round_trip_shares(asset);
    const double change = waiting_change(held * price, weight, equity);
    const double value = weight == 0.0 ? 0.0 : held * price + change;
    book_.trade(asset, value, price, session, paid_);
    fills_.add(session, asset, held, book_.shares(asset), price);
    book_.forgive_rounding(equity);
    leaving_.remove(asset);
    if (book_.shares(asset) != 0.0) {
        out_.weights_in_force[asset] = weight;
    }
    if (!same_side(before, book_.shares(asset))) {
        position_changed({asset, session, price, weight, before, rebalance_cause(in_, row)});
    }
    return change > 0.0 ? change * in_.options.costs.buy_rate()
                        : -change * in_.options.costs.sell_rate();
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

/// A stop that is touched at the very open takes back what the orders have traded there.
void Simulator::keep_shares_before_orders(std::size_t session) {
    if (fills_at(FillAt::kOpen) && stops_.inside_sessions()) {
        shares_before_orders_ = book_.shares();
        orders_session_ = static_cast<std::int64_t>(session);
    }
}

/// The shares of an asset's round trip: none where it has ended and left them to this order.
double Simulator::round_trip_shares(std::size_t asset) {
    return !leaving_.empty() && leaving_.has(asset) ? 0.0 : book_.shares(asset);
}

void Simulator::position_changed(const Change& change) {
    if (change.shares_before != 0.0) {
        close_round_trip(change);
    }
    if (book_.shares(change.asset) != 0.0) {
        open_round_trip(change);
    } else {
        out_.weights_in_force[change.asset] = 0.0;
    }
}

void Simulator::close_round_trip(const Change& change) {
    // Whether the position has lived through the close of the session in which it ends.
    const ExitReason reason = change.cause.reason;
    const bool at_close = fills_at(FillAt::kClose);
    const bool saw_close = reason == ExitReason::kRuin ||
                           (at_close && !change.touched && reason != ExitReason::kPricesEnded);
    const double price = quoted(change.asset, change.session, change.price);
    const auto figures = excursions_.close(change.asset, change.session + (saw_close ? 1 : 0),
                                           price, at_close && change.touched);
    RoundTrip* trip = log_.close(change.asset, change.session, price, change.cause, figures);
    if (account_ != nullptr) {
        account_->close_trip(change.asset, change.session, price, trip);
    }
    if (stops_.active()) {
        stops_.leave(change.asset);
    }
    pending_.drop(change.asset);
}

void Simulator::open_round_trip(const Change& change) {
    out_.out_reason[change.asset] = ExitReason::kOpen;
    const bool is_long = book_.shares(change.asset) > 0.0;
    const double price = quoted(change.asset, change.session, change.price);
    double executed = in_.options.costs.executed(price, is_long);
    if (account_ != nullptr) {
        executed = account_->executed_price(change.asset, change.session, price, is_long);
    }
    excursions_.open(change.asset, is_long, executed);
    const std::int64_t row = change.cause.rebalance;
    log_.open(change.asset, row, change.session, price, change.weight);
    if (account_ != nullptr) {
        account_->open_trip(change.asset, row, change.session, book_.shares(change.asset));
    }
    if (stops_.active()) {
        stops_.enter(change.asset, is_long, executed,
                     change.session + (stops_before_fills() ? 1 : 0));
        // This close may have set off a stop of the position that the new one replaces.
        std::erase_if(fired_, [&](const FiredStop& stop) { return stop.asset == change.asset; });
    }
}

} // namespace corvex::engine::inline v1
