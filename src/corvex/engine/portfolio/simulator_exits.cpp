// Positions that end alone: stops, and how they are netted with an order of the same session.
#include "corvex/engine/portfolio/simulator.hpp"

namespace corvex::engine::inline v1 {

void Simulator::fill_fired_stops(std::size_t session) {
    if (pending_.empty()) {
        return;
    }
    const bool due = rebalance_is_due(session);
    exiting_.assign(pending_.assets().begin(), pending_.assets().end()); // exits drop out of it
    for (const std::uint32_t asset : exiting_) {
        const double price = fill_price(asset, session);
        if (is_missing(price)) {
            continue;
        }
        const ExitCause cause{pending_.reason(asset), pending_.session(asset), -1};
        if ((due || waiting_.has(asset)) && nets_orders()) {
            leave_to_order(asset, session, price, cause);
        } else {
            exit_position(asset, session, price, cause);
        }
    }
}

void Simulator::fill_touched_stops(std::size_t session) {
    touched_.clear();
    stops_.check_range(session, stop_block_end(session), touched_);
    for (const TouchedStop& stop : touched_) {
        const std::size_t asset = stop.asset;
        const ExitCause cause{stop.reason, static_cast<std::int64_t>(session), -1};
        waiting_.cancel(asset);
        cooldowns_.start(asset);
        const double order_price = fill_price(asset, session);
        const bool at_order_price = stop.price == quoted(asset, session, order_price);
        const double price = at_order_price ? order_price : stop.price * rate(asset, session);
        if (at_order_price && stops_before_fills() && rebalance_is_due(session) && nets_orders()) {
            leave_to_order(asset, session, price, cause, true);
            continue;
        }
        if (at_order_price && orders_session_ == static_cast<std::int64_t>(session)) {
            undo_order(asset, session, price);
        }
        exit_position(asset, session, price, cause, true);
    }
}

void Simulator::exit_position(std::size_t asset, std::size_t session, double price,
                              const ExitCause& cause, bool touched) {
    if (account_ != nullptr) {
        exit_account(asset, session, price, cause, touched);
        return;
    }
    const double before = book_.shares(asset);
    book_.trade(asset, 0.0, price, session, paid_);
    fills_.add(session, asset, before, 0.0, price);
    position_ended({asset, session, price, 0.0, before, cause, touched});
}

/// Ends a round trip, also one whose order was just taken back, so that no shares are left of it.
void Simulator::position_ended(const Change& change) {
    out_.out_reason[change.asset] = change.cause.reason;
    close_round_trip(change);
    out_.weights_in_force[change.asset] = 0.0;
}

/// Ends the round trip and leaves its shares to the order that fills next, at the same price.
void Simulator::leave_to_order(std::size_t asset, std::size_t session, double price,
                               const ExitCause& cause, bool touched) {
    out_.out_reason[asset] = cause.reason;
    if (account_ != nullptr) {
        account_->hand_over(asset, book_.shares(asset), price);
    }
    close_round_trip({asset, session, price, 0.0, book_.shares(asset), cause, touched});
    leaving_.add(asset);
}

/// Sells what was left to an order that did not come about for want of equity.
void Simulator::sell_left_over(std::size_t session) {
    if (leaving_.empty()) {
        return;
    }
    for (const std::uint32_t asset : leaving_.list()) {
        const double before = book_.shares(asset);
        const double price = fill_price(asset, session);
        if (account_ != nullptr) {
            settle(asset, 0.0, price, session);
        } else {
            book_.trade(asset, 0.0, price, session, paid_);
            fills_.add(session, asset, before, 0.0, price);
        }
        out_.weights_in_force[asset] = 0.0;
    }
    leaving_.clear();
}

/// Takes back what an order has traded in an asset, before a stop sells it at the same price.
void Simulator::undo_order(std::size_t asset, std::size_t session, double price) {
    if (account_ != nullptr) {
        undo_settled(asset, session);
        return;
    }
    const double before = shares_before_orders_[asset];
    if (before != book_.shares(asset)) {
        book_.untrade(asset, before, price, paid_);
        fills_.remove_last(session, asset);
    }
}

} // namespace corvex::engine::inline v1
