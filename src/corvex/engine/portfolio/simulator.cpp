#include "corvex/engine/portfolio/simulator.hpp"

#include <algorithm>

namespace corvex::engine::inline v1 {

namespace {

KeepTrips kept_trips(const Recording& record) {
    if (!record.trades) {
        return KeepTrips::kNone;
    }
    return record.counts_only ? KeepTrips::kCounts : KeepTrips::kAll;
}

} // namespace

Simulator::Simulator(const SimulationInput& input)
    : in_{input}, assets_{input.prices.assets()},
      account_{input.account == nullptr
                   ? nullptr
                   : std::make_unique<Account>(*input.account, input.prices, input.options.costs,
                                               input.plan.first_session)},
      prices_{account_ == nullptr ? input.prices : account_->currencies().prices()},
      book_{prices_.close(), input.options.costs,
            input.account == nullptr ? 1.0 : input.account->capital,
            account_ == nullptr ? nullptr : &account_->currencies()},
      solver_{input.options.costs, assets_}, row_solver_{input.options.costs, assets_},
      stops_{input.prices, input.options.stops}, cooldowns_{assets_, input.options.stops.cooldown},
      waiting_{assets_}, pending_{assets_},
      excursions_{input.prices.close(), input.plan.first_session,
                  input.record.trades && input.record.excursions},
      log_{input.options.costs, assets_, input.plan.rebalances(), kept_trips(input.record)},
      fills_{input.options.costs, assets_ * input.plan.rebalances(), input.record.fills},
      session_{input.plan.first_session}, leaving_{assets_} {
    for (auto* series :
         {&out_.equity, &out_.cash, &out_.fees, &out_.taxes, &out_.slippage, &out_.traded}) {
        series->resize(in_.prices.sessions() - in_.plan.first_session, 0.0);
    }
    if (account_ != nullptr) {
        rest_side_.resize(assets_, 0);
    }
    out_.weights_in_force.resize(assets_, 0.0);
    out_.out_reason.resize(assets_, ExitReason::kOpen);
}

void Simulator::advance(std::size_t end) {
    while (session_ < end) {
        const std::size_t busy = quiet_until(session_, end);
        if (busy > session_) {
            session_ = hold(session_, busy);
            continue;
        }
        run_session(session_);
        write_down(session_);
        ++session_;
    }
}

/// The first session from this one to `end` in which more happens than that holdings change their
/// value.
std::size_t Simulator::quiet_until(std::size_t session, std::size_t end) const {
    if (account_ != nullptr || out_.ruin_session >= 0 || !waiting_.empty() || !pending_.empty()) {
        return session;
    }
    const auto fill_after = [](std::int64_t signal) {
        return static_cast<std::size_t>(signal + 1);
    };
    if (next_rebalance_ < in_.plan.rebalances()) {
        end = std::min(end, fill_after(in_.plan.signal_session[next_rebalance_]));
    }
    const auto& ends = in_.prices.ends();
    if (ends_done_ < ends.size()) {
        end = std::min(end, static_cast<std::size_t>(ends[ends_done_].first));
    }
    return stops_.active() ? std::min(end, stops_.quiet_until(session)) : end;
}

/// Marks the holdings in the sessions before `end`, or until they are worth nothing. Returns the
/// session that follows.
std::size_t Simulator::hold(std::size_t session, std::size_t end) {
    // As many sessions as the first cache has room for, so that excursions find the prices there.
    constexpr std::size_t kPricesAtOnce = 1U << 12U;
    const std::size_t at_once = std::max<std::size_t>(8, kPricesAtOnce / assets_);
    while (session < end) {
        const std::size_t count = std::min(at_once, end - session);
        const auto equity = std::span(out_.equity).subspan(offset(session), count);
        book_.equities(session, equity);
        const auto lost = std::ranges::find_if(equity, [](double value) { return !(value > 0.0); });
        const auto kept = static_cast<std::size_t>(lost - equity.begin());
        std::ranges::fill(std::span(out_.cash).subspan(offset(session), kept), book_.cash());
        excursions_.observe_block(session + kept);
        for (std::size_t k = 0; !in_.record.position.empty() && k < kept; ++k) {
            write_position(session + k);
        }
        session += kept;
        if (kept < count) {
            std::fill(lost, equity.end(), 0.0);
            write_down(session); // tells the ruin
            return session + 1;
        }
    }
    return session;
}

void Simulator::run_session(std::size_t session) {
    if (out_.ruin_session >= 0) {
        return;
    }
    if (account_ != nullptr) {
        account_->begin(book_, session);
        follow_splits(session);
    }
    close_ended(session);
    fired_.clear();
    if (!stops_before_fills()) {
        fill_orders(session);
    }
    if (stops_.inside_sessions()) {
        fill_touched_stops(session);
    } else if (stops_.on_closes()) {
        stops_.check_closes(session, stop_block_end(session), fired_);
    }
    if (stops_before_fills()) {
        fill_orders(session);
    }
    fire_stops(session);
}

/// A stop comes before the orders of its session unless the orders have filled at the open, or
/// before the close that sets it off.
bool Simulator::stops_before_fills() const {
    return stops_.inside_sessions() ? !fills_at(FillAt::kOpen) : fills_at(FillAt::kClose);
}

/// Stops and excursions see through splits: what they remember is told in the new shares.
void Simulator::follow_splits(std::size_t session) {
    for (const AssetEvent& split : account_->splits_today()) {
        excursions_.observe_before(session);
        excursions_.split(split.asset, split.amount);
        stops_.split(split.asset, split.amount);
    }
}

/// The session whose stops the positions of the next rebalance may be the first to set off.
std::size_t Simulator::stop_block_end(std::size_t session) const {
    const std::size_t next_split =
        account_ == nullptr ? in_.prices.sessions() : account_->next_split();
    for (std::size_t row = next_rebalance_; row < in_.plan.rebalances(); ++row) {
        const auto fill = static_cast<std::size_t>(in_.plan.signal_session[row] + 1);
        const std::size_t end = fill + (stops_before_fills() ? 1 : 0);
        if (end > session) {
            return std::min(end, next_split);
        }
    }
    return std::min(in_.prices.sessions(), next_split);
}

void Simulator::close_ended(std::size_t session) {
    const auto& ends = in_.prices.ends();
    for (; ends_done_ < ends.size() && ends[ends_done_].first <= static_cast<std::int64_t>(session);
         ++ends_done_) {
        const std::size_t asset = ends[ends_done_].second;
        if (book_.shares(asset) != 0.0) {
            exit_position(asset, session, book_.price_before(asset, session),
                          {ExitReason::kPricesEnded, static_cast<std::int64_t>(session), -1});
        }
    }
}

void Simulator::fill_orders(std::size_t session) {
    fill_fired_stops(session);
    if (account_ != nullptr && account_->margin_called() && !rebalance_is_due(session)) {
        cut_for_margin(session);
    }
    std::int64_t due = -1;
    while (rebalance_is_due(session)) {
        due = static_cast<std::int64_t>(next_rebalance_++);
    }
    if (due >= 0) {
        rebalance(due, session);
    } else if (!waiting_.empty()) {
        fill_waiting(session);
    }
    sell_left_over(session);
}

bool Simulator::rebalance_is_due(std::size_t session) const {
    return next_rebalance_ < in_.plan.rebalances() &&
           in_.plan.signal_session[next_rebalance_] + 1 <= static_cast<std::int64_t>(session);
}

void Simulator::fire_stops(std::size_t session) {
    for (const FiredStop& stop : fired_) {
        // Orders that filled at this very close may have ended the position already.
        if (!stops_.watches(stop.asset)) {
            continue;
        }
        stops_.leave(stop.asset);
        waiting_.cancel(stop.asset);
        cooldowns_.start(stop.asset);
        pending_.add(stop.asset, stop.reason, session);
    }
}

void Simulator::write_down(std::size_t session) {
    const std::size_t at = offset(session);
    if (out_.ruin_session < 0) {
        double value = book_.mark(session);
        double equity = book_.cash() + value;
        excursions_.observe_block(session + 1);
        if (equity <= 0.0 || out_of_equity_) {
            ruin(session);
            equity = value = 0.0;
        }
        // An account counts in money, the curve in what a unit of it has become.
        const double units = account_ == nullptr ? 1.0 : account_->units();
        out_.equity[at] = equity / units;
        out_.cash[at] = book_.cash() / units;
        out_.fees[at] = paid_.fees / units;
        out_.taxes[at] = paid_.taxes / units;
        out_.slippage[at] = paid_.slippage / units;
        out_.traded[at] = paid_.traded / units;
        if (account_ != nullptr) {
            account_->end(book_, session, {equity, value}, paid_);
        }
        if (paid_.any()) {
            out_.trading_rows.push_back(at);
        }
        paid_ = {};
    }
    write_position(session);
}

void Simulator::write_position(std::size_t session) {
    if (!in_.record.position.empty()) {
        std::ranges::copy(out_.weights_in_force,
                          in_.record.position.begin() +
                              static_cast<std::ptrdiff_t>(offset(session) * assets_));
    }
}

void Simulator::ruin(std::size_t session) {
    out_.ruin_session = static_cast<std::int64_t>(session);
    const std::vector<std::uint32_t> held = book_.held();
    for (const std::uint32_t asset : held) {
        exit_position(asset, session, book_.price_after(asset, session),
                      {ExitReason::kRuin, static_cast<std::int64_t>(session), -1});
    }
    book_.set_cash(0.0);
    waiting_.restart(-1);
}

SimulationResult Simulator::finish() {
    out_.cooldown = cooldowns_.left(assets_);
    if (out_.ruin_session < 0 && in_.prices.sessions() > in_.plan.first_session) {
        const std::size_t last = in_.prices.sessions() - 1;
        for (const std::uint32_t asset : book_.held()) {
            const double price = book_.price_after(asset, last);
            RoundTrip* trip = log_.mark_open(asset, quoted(asset, last, price),
                                             excursions_.figures(asset, last + 1));
            if (account_ != nullptr) {
                account_->mark_open(asset, last, book_.shares(asset), price, trip);
            }
        }
        signal_beyond_table();
    }
    out_.shares = book_.shares();
    out_.pending_reason = pending_.reasons();
    out_.pending_session = pending_.sessions();
    out_.waiting_rebalance = waiting_.rebalances();
    out_.trip_counts = log_.counts();
    out_.round_trips = log_.take_sorted();
    out_.fills = fills_.take();
    if (account_ != nullptr) {
        out_.account = account_->finish(out_.round_trips);
    }
    return std::move(out_);
}

void Simulator::signal_beyond_table() {
    for (const std::uint32_t asset : pending_.assets()) {
        log_.signal_exit(asset, {pending_.reason(asset), pending_.session(asset), -1});
    }
    if (next_rebalance_ < in_.plan.rebalances()) {
        const std::size_t row = in_.plan.rebalances() - 1;
        const auto weights = cooldowns_.apply(in_.plan.weights(row));
        require_finite(weights);
        for (std::size_t asset = 0; asset < assets_; ++asset) {
            signal_order(asset, static_cast<std::int64_t>(row), weights[asset]);
        }
        return;
    }
    for (const std::uint32_t asset : waiting_.assets()) {
        signal_order(asset, waiting_.rebalance(), waiting_.weight(asset));
    }
}

void Simulator::signal_order(std::size_t asset, std::int64_t rebalance, double weight) {
    const auto row = static_cast<std::size_t>(rebalance);
    const double shares = pending_.has(asset) ? 0.0 : book_.shares(asset);
    const bool keeps_side = (weight > 0.0 && shares > 0.0) || (weight < 0.0 && shares < 0.0);
    if (shares != 0.0 && !keeps_side) {
        log_.signal_exit(asset, {ExitReason::kRebalance, in_.plan.signal_session[row], rebalance});
    }
    if (weight != 0.0 && !keeps_side) {
        log_.signal_entry(asset, rebalance, weight);
    }
}

SimulationResult simulate(const SimulationInput& input) {
    validate(input);
    Simulator simulator{input};
    simulator.advance(input.prices.sessions());
    return simulator.finish();
}

} // namespace corvex::engine::inline v1
