// Orders of a run that keeps an account: what is wanted, what of it is allowed and paid for.
#include "corvex/engine/account/lots.hpp"
#include "corvex/engine/portfolio/simulator.hpp"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

/// This part of the equity is a rounding error.
constexpr double kRounding = 1e-12;
/// Cash that is left over by no more is spent.
constexpr double kCashRounding = 1e-15;

bool same_side(double a, double b) { return (a > 0.0 && b > 0.0) || (a < 0.0 && b < 0.0); }

bool is_unfilled(Cut cut) { return has(cut, Cut::kPriceLimit) || has(cut, Cut::kVolume); }

/// What a purchase only covers: a short is never kept for want of cash.
double covered(double held, double after) { return std::min(after - held, std::max(0.0, -held)); }

} // namespace

void Simulator::rebalance_account(std::int64_t row, std::span<const double> weights,
                                  std::size_t session) {
    std::ranges::fill(rest_side_, std::int8_t{0});
    const double before = collect_wanted(weights, session);
    want_within_bands(before, session);
    const double after = before > 0.0 ? account_->solver().solve(before) : before;
    if (!(after > 0.0)) {
        waiting_.restart(row);
        if (before > 0.0) { // no broker takes orders that cost more than there is
            account_->note_unpaid(session);
        } else {
            out_of_equity_ = true;
        }
        return;
    }
    out_.executed_rebalance = row;
    keep_shares_before_orders(session);
    excursions_.observe_before(fills_at(FillAt::kClose) ? session + 1 : session);
    const TargetSolver& solver = account_->solver();
    wanted_.clear();
    for (std::size_t k = 0; k < solver.size(); ++k) {
        const std::uint32_t asset = solver.asset(k);
        wanted_.push_back({asset, weights[asset], solver.price(k), solver.shares(k)});
    }
    place(row, session, after);
    leaving_.clear();
}

/// Lists what can be traded in wanted_, and gives the solver what cannot. Returns the equity.
double Simulator::collect_wanted(std::span<const double> weights, std::size_t session) {
    account_->solver().clear(assets_);
    wanted_.clear();
    total_weight_ = 0.0;
    double equity = book_.cash();
    for (std::size_t asset = 0; asset < assets_; ++asset) {
        const double weight = weights[asset];
        const double shares = book_.shares(asset);
        total_weight_ += weight;
        if (weight == 0.0 && shares == 0.0) {
            continue;
        }
        const double price = fill_price(asset, session);
        const double value_price = is_missing(price) ? book_.price_before(asset, session) : price;
        const double value = shares == 0.0 ? 0.0 : shares * value_price;
        equity += value;
        if (is_missing(price) || pending_.has(asset)) { // the rest of a stop's exit goes first
            account_->solver().add_fixed(value, weight);
            if (is_missing(price) || weight != 0.0) {
                waiting_.add(asset, weight);
            }
            continue;
        }
        wanted_.push_back({static_cast<std::uint32_t>(asset), weight, price, shares});
    }
    return equity;
}

/// Gives the solver what is wanted; holdings within their bands stay as they are.
void Simulator::want_within_bands(double equity, std::size_t session) {
    account_->prepare_orders(wanted_, session);
    const bool banded = equity > 0.0 && account_->has_bands();
    for (const Account::Wanted& wanted : wanted_) {
        const double held = wanted.exact;
        const double value = held * wanted.price;
        double weight = wanted.weight;
        if (banded && (leaving_.empty() || !leaving_.has(wanted.asset))) {
            weight = account_->banded_weight(wanted.asset, session, weight, value / equity);
        }
        if (std::isnan(weight)) {
            account_->solver().add_fixed(value, wanted.weight);
            out_.weights_in_force[wanted.asset] = wanted.weight;
            continue;
        }
        account_->solver().add({wanted.asset, held, wanted.price, weight,
                                account_->impact(wanted.asset, session),
                                rate(wanted.asset, session)});
    }
}

void Simulator::fill_waiting_account(std::vector<std::uint32_t> ready, std::size_t session) {
    double equity = equity_at_fill(session);
    std::ranges::stable_partition(ready, [&](std::uint32_t asset) {
        return waiting_.weight(asset) * equity < book_.shares(asset) * fill_price(asset, session);
    });
    for (const std::uint32_t asset : ready) {
        trade_waiting_account(asset, session, equity);
        equity = equity_at_fill(session);
    }
}

/// Brings one asset alone to weight x the equity after its own costs.
void Simulator::trade_waiting_account(std::size_t asset, std::size_t session, double equity) {
    const double weight = waiting_.weight(asset);
    const double price = fill_price(asset, session);
    const double held = book_.shares(asset);
    waiting_.cancel(asset);
    if (equity <= 0.0) {
        out_of_equity_ = true;
        return;
    }
    TargetSolver& solver = account_->solver();
    solver.clear(1);
    solver.add({static_cast<std::uint32_t>(asset), held, price, weight,
                account_->impact(asset, session), rate(asset, session)});
    if (!(solver.solve(equity) > 0.0)) {
        account_->note_unpaid(session);
        return;
    }
    double exact = weight == 0.0 ? 0.0 : solver.shares(0);
    // What is left of a purchase never sells, and the other way round.
    if (rest_side_[asset] * (exact - held) < 0.0) {
        exact = held;
    }
    wanted_.assign(1, {static_cast<std::uint32_t>(asset), weight, price, exact});
    place(waiting_.rebalance(), session, equity);
}

/// Trades what is wanted as far as it is allowed and paid for: sales first.
void Simulator::place(std::int64_t row, std::size_t session, double equity) {
    // Which side an order is on cannot be guessed: both lists take it, one of them keeps it.
    sales_.resize(wanted_.size());
    std::size_t sales = 0;
    std::size_t purchases = 0;
    for (Account::Wanted& wanted : wanted_) {
        const double held = book_.shares(wanted.asset);
        if (held != 0.0 && wanted.exact != 0.0 &&
            std::abs((wanted.exact - held) * wanted.price) <= kRounding * equity) {
            wanted.exact = held; // a rounding error is no order
        }
        account_->allow(wanted, held, session);
        if (is_unfilled(wanted.cut) && account_->keeps_rest()) {
            waiting_.add(wanted.asset, wanted.weight);
            rest_side_[wanted.asset] = wanted.exact > held ? 1 : -1;
        }
        const Account::Wanted order = wanted;
        const bool buys = !(order.after <= held);
        sales_[sales] = order;
        sales += static_cast<std::size_t>(!buys);
        wanted_[purchases] = order;
        purchases += static_cast<std::size_t>(buys);
    }
    for (const Account::Wanted& wanted : std::span(sales_).first(sales)) {
        trade_wanted(wanted, row, session);
    }
    wanted_.resize(purchases);
    cut_to_cash(session, equity);
    for (const Account::Wanted& wanted : wanted_) {
        trade_wanted(wanted, row, session);
    }
    if (book_.cash() < 0.0 && book_.cash() > -kRounding * equity) {
        book_.set_cash(0.0);
    }
}

/// What a purchase costs of which only a share is bought beyond covering.
double Simulator::outlay(const Account::Wanted& wanted, std::size_t session, double share) const {
    const double held = book_.shares(wanted.asset);
    const double cover = covered(held, wanted.after);
    const double bought = cover + share * (wanted.after - held - cover);
    return bought * wanted.price +
           account_->cost(wanted.asset, session, bought, wanted.price).total();
}

/// The cash once a share of what is to be bought beyond covering is bought.
double Simulator::cash_after(std::size_t session, double share) const {
    double cash = book_.cash();
    for (const Account::Wanted& wanted : wanted_) {
        cash -= outlay(wanted, session, share);
    }
    return cash;
}

/// The largest share of the purchases that leaves this cash, between secant and bisection: minimum
/// fees make the cash jump.
double Simulator::affordable_share(std::size_t session, double floor, double equity) const {
    double low = 0.0;
    double high = 1.0;
    double spare = cash_after(session, low) - floor;
    double lack = floor - cash_after(session, high);
    for (int step = 0; step < 120 && spare > kCashRounding * equity; ++step) {
        const double secant = low + (high - low) * (spare / (spare + lack));
        const double share = step % 2 == 0 && secant > low ? secant : (low + high) / 2.0;
        const double left = cash_after(session, share) - floor;
        if (left >= 0.0) {
            low = share;
            spare = left;
        } else {
            high = share;
            lack = -left;
        }
    }
    return low;
}

/// Purchases share what cash there is, down to what the weights plan to owe.
void Simulator::cut_to_cash(std::size_t session, double equity) {
    const double floor = std::min(0.0, 1.0 - total_weight_) * equity;
    if (account_->rounds_to_nearest()) {
        round_down_to_cash(session, floor);
    }
    if (wanted_.empty() || cash_after(session, 1.0) >= floor - kRounding * equity) {
        return;
    }
    const double share = affordable_share(session, floor, equity);
    for (Account::Wanted& wanted : wanted_) {
        const double held = book_.shares(wanted.asset);
        const double cover = covered(held, wanted.after);
        double more = share * (wanted.after - held - cover);
        // Cash that is a mere rounding error buys nothing.
        if (more * wanted.price <= kRounding * equity) {
            more = 0.0;
        }
        const double least = held + cover;
        wanted.after = std::max(whole_lots(least + more, account_->lot(wanted.asset)), least);
        wanted.cut |= Cut::kCash;
    }
}

/// Takes back what rounding to the nearest lot has added, the largest value first, until the cash
/// suffices.
void Simulator::round_down_to_cash(std::size_t session, double floor) {
    const auto added = [](const Account::Wanted& w) { return (w.after - w.exact) * w.price; };
    double cash = cash_after(session, 1.0);
    if (cash >= floor) {
        return;
    }
    std::vector<std::pair<double, std::size_t>> raised;
    for (std::size_t k = 0; k < wanted_.size(); ++k) {
        if (const double value = added(wanted_[k]); value > 0.0) {
            raised.emplace_back(value, wanted_.size() - k); // of the same, the first comes first
        }
    }
    std::ranges::make_heap(raised);
    while (!raised.empty() && cash < floor) {
        std::ranges::pop_heap(raised);
        Account::Wanted& wanted = wanted_[wanted_.size() - raised.back().second];
        raised.pop_back();
        cash += outlay(wanted, session, 1.0);
        wanted.after = std::max(whole_lots(wanted.exact, account_->lot(wanted.asset)),
                                book_.shares(wanted.asset));
        cash -= outlay(wanted, session, 1.0);
    }
}

void Simulator::trade_wanted(const Account::Wanted& wanted, std::int64_t row, std::size_t session) {
    const std::size_t asset = wanted.asset;
    const double before = round_trip_shares(asset);
    settle(asset, wanted.after, wanted.price, session);
    if (!leaving_.empty()) {
        leaving_.remove(asset);
    }
    out_.weights_in_force[asset] = wanted.weight;
    if (!same_side(before, wanted.after)) {
        const ExitCause cause{ExitReason::kRebalance,
                              in_.plan.signal_session[static_cast<std::size_t>(row)], row};
        position_changed({asset, session, wanted.price, wanted.weight, before, cause});
    }
    if (wanted.cut != Cut::kNone) {
        account_->note_cut(asset, session, wanted.cut, row);
    }
}

/// Trades an asset to a holding, and pays for it.
void Simulator::settle(std::size_t asset, double after, double price, std::size_t session) {
    const double before = book_.shares(asset);
    if (before == after) {
        return;
    }
    const double change = after - before;
    const OrderCost cost = account_->order(asset, session, before, after, price);
    book_.set_shares(asset, after, price, session);
    book_.holdings_changed();
    book_.set_cash(book_.cash() - change * price - cost.total());
    paid_.fees += cost.fee;
    paid_.taxes += cost.tax;
    paid_.slippage += cost.slippage;
    paid_.traded += std::abs(change) * price;
    fills_.add(session, asset, before, after, quoted(asset, session, price), cost.total());
}

/// Ends a position; where volume or a price limit keeps a part of it, the rest goes on leaving.
void Simulator::exit_account(std::size_t asset, std::size_t session, double price,
                             const ExitCause& cause, bool touched) {
    const double before = book_.shares(asset);
    Account::Wanted wanted{static_cast<std::uint32_t>(asset), 0.0, price, 0.0};
    if (cause.reason != ExitReason::kPricesEnded && cause.reason != ExitReason::kRuin) {
        account_->allow(wanted, before, session);
    }
    settle(asset, wanted.after, price, session);
    if (wanted.cut != Cut::kNone) {
        account_->note_cut(asset, session, wanted.cut);
    }
    if (wanted.after == 0.0) {
        position_ended({asset, session, price, 0.0, before, cause, touched});
    } else if (!pending_.has(asset)) {
        stops_.leave(asset);
        pending_.add(asset, cause.reason, static_cast<std::size_t>(cause.signal_session));
    }
}

/// Cuts all positions in proportion, to where the margin holds at the fill prices. What a stop has
/// left to an order is not among them: it trades as a whole.
void Simulator::cut_for_margin(std::size_t session) {
    double gross = 0.0;
    for (std::size_t asset = 0; asset < assets_; ++asset) {
        if (const double shares = round_trip_shares(asset); shares != 0.0) {
            gross += std::abs(shares * fill_value_price(asset, session));
        }
    }
    const double share = equity_at_fill(session) / (account_->maintenance_margin() * gross);
    if (!(share < 1.0)) {
        return;
    }
    waiting_.restart(waiting_.rebalance());
    keep_shares_before_orders(session);
    excursions_.observe_before(fills_at(FillAt::kClose) ? session + 1 : session);
    const auto signal = static_cast<std::int64_t>(session) - 1;
    const std::vector<std::uint32_t> held = book_.held();
    for (const std::uint32_t asset : held) {
        const double price = fill_price(asset, session);
        const double before = round_trip_shares(asset);
        if (is_missing(price) || pending_.has(asset) || before == 0.0) {
            continue;
        }
        Account::Wanted wanted{asset, 0.0, price, std::max(share, 0.0) * before};
        account_->allow(wanted, before, session);
        settle(asset, wanted.after, price, session);
        account_->note_cut(asset, session, wanted.cut | Cut::kMargin);
        if (wanted.after == 0.0) {
            position_ended({asset, session, price, 0.0, before, {ExitReason::kMargin, signal, -1}});
        }
    }
}

/// Takes back what an order has traded in an asset, before a stop sells it at the same price.
void Simulator::undo_settled(std::size_t asset, std::size_t session) {
    const Account::LastOrder* order = account_->take_back(asset, session);
    if (order == nullptr) {
        return;
    }
    const double change = order->after - order->before;
    book_.set_shares(asset, order->before, order->price, session);
    book_.holdings_changed();
    book_.set_cash(book_.cash() + change * order->price + order->cost.total());
    paid_.fees -= order->cost.fee;
    paid_.taxes -= order->cost.tax;
    paid_.slippage -= order->cost.slippage;
    paid_.traded -= std::abs(change) * order->price;
    fills_.remove_last(session, asset);
}

} // namespace corvex::engine::inline v1
