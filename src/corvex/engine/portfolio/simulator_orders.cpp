#include "corvex/engine/portfolio/simulator_state.hpp"

#include <algorithm>
#include <limits>

namespace corvex::engine::portfolio {

using trades::ExitCause;
using trades::ExitReason;

double Simulator::fill_price(std::size_t asset, std::size_t session) const {
    const double price = in_.fill_prices().at(session, asset);
    const bool listed = static_cast<std::int64_t>(session) <= last_priced_[asset];
    return listed && is_tradable(price) ? price : std::numeric_limits<double>::quiet_NaN();
}

double Simulator::fill_value_price(std::size_t asset, std::size_t session) const {
    const double price = fill_price(asset, session);
    return is_missing(price) ? book_.price_before(asset, session) : price;
}

void Simulator::fill_fired_stops(std::size_t session) {
    std::erase_if(pending_, [&](std::uint32_t asset) {
        if (out_.pending_reason[asset] == 0) {
            return true; // the position has ended otherwise
        }
        const double price = fill_price(asset, session);
        if (is_missing(price)) {
            return false;
        }
        exit_position(
            asset, session, price,
            {static_cast<ExitReason>(out_.pending_reason[asset]), out_.pending_session[asset], -1});
        return true;
    });
}

void Simulator::rebalance(std::int64_t row, std::size_t session) {
    cancel_all_waiting();
    std::ranges::fill(out_.out_reason, 0);
    const double* weights = in_.target_row(static_cast<std::size_t>(row));
    const double before = collect_rebalance(weights, session);
    const double after = before > 0.0 ? solver_.solve(before) : before;
    if (after <= 0.0) {
        out_of_equity_ = true;
        return;
    }
    out_.executed_rebalance = row;
    excursions_.observe_before(fills_at(FillAt::kClose) ? session + 1 : session);
    apply_rebalance(row, session);
    for (const std::uint32_t asset : waiting_) {
        out_.waiting_rebalance[asset] = row;
    }
}

double Simulator::collect_rebalance(const double* weights, std::size_t session) {
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
            waiting_.push_back(static_cast<std::uint32_t>(asset));
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
    const ExitCause cause{ExitReason::kRebalance, in_.signal_session[static_cast<std::size_t>(row)],
                          row};
    for (std::size_t k = 0; k < tradable_.size(); ++k) {
        const std::size_t asset = tradable_[k];
        const double before = book_.shares(asset);
        const double after = solver_.shares(k);
        book_.set_shares(asset, after, solver_.price(k), session);
        fills_.add(session, asset, before, after, solver_.price(k));
        out_.weights_in_force[asset] = solver_.weight(k);
        if (!same_side(before, after)) {
            position_changed({asset, session, solver_.price(k), solver_.weight(k), before, cause});
        }
    }
    book_.holdings_changed();
    book_.set_cash(trades.cash);
    paid_.add(in_.costs, trades.bought, trades.sold);
}

void Simulator::exit_position(std::size_t asset, std::size_t session, double price,
                              const ExitCause& cause, bool touched) {
    const double before = book_.shares(asset);
    book_.trade(asset, 0.0, price, session, paid_);
    fills_.add(session, asset, before, 0.0, price);
    out_.out_reason[asset] = static_cast<std::int64_t>(cause.reason);
    position_changed({asset, session, price, 0.0, before, cause, touched});
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
    const auto figures = excursions_.close(change.asset, change.session + (saw_close ? 1 : 0),
                                           change.price, at_close && change.touched);
    log_.close(change.asset, change.session, change.price, change.cause, figures);
    if (stops_.active()) {
        stops_.leave(change.asset);
    }
    out_.pending_reason[change.asset] = 0;
    out_.pending_session[change.asset] = -1;
}

void Simulator::open_round_trip(const Change& change) {
    const bool is_long = book_.shares(change.asset) > 0.0;
    const double executed = in_.costs.executed(change.price, is_long);
    excursions_.open(change.asset, is_long, executed);
    const std::int64_t row = change.cause.rebalance;
    log_.open(change.asset, row, change.session, change.price, change.weight);
    if (stops_.active()) {
        stops_.enter(change.asset, is_long, executed,
                     change.session + (stops_before_fills() ? 1 : 0));
        // This close may have set off a stop of the position that the new one replaces.
        std::erase_if(fired_, [&](const FiredStop& stop) { return stop.asset == change.asset; });
    }
}

} // namespace corvex::engine::portfolio
