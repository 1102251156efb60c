// What an account's orders may trade, and what they cost.
#include "corvex/engine/account/account.hpp"
#include "corvex/engine/account/lots.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace corvex::engine::inline v1 {

namespace {

/// An opening price this near to its limit is at it.
constexpr double kLimitRounding = 1e-9;

void count(CutCount& counts, std::size_t asset, std::size_t session) {
    if (counts.count++ == 0) {
        counts.session = static_cast<std::int64_t>(session);
        counts.asset = static_cast<std::int64_t>(asset);
    }
}

} // namespace

void Account::prepare_orders(const std::vector<Wanted>& wanted, std::size_t session) {
    if (!impact_.active()) {
        return;
    }
    prepared_.clear();
    for (const Wanted& one : wanted) {
        prepared_.push_back(one.asset);
    }
    impact_.look_back(prepared_, session);
}

void Account::allow(Wanted& wanted, double held, std::size_t session) {
    const std::size_t asset = wanted.asset;
    const double step = lot(asset);
    wanted.after =
        terms_.round_to_nearest ? nearest_lots(wanted.exact, step) : whole_lots(wanted.exact, step);
    const double borrowed = std::min(held, 0.0);
    if (wanted.after < borrowed && !can_borrow(asset, session)) {
        wanted.after = borrowed;
        wanted.cut |= Cut::kBorrow;
    }
    const double change = wanted.after - held;
    if (change == 0.0) {
        return;
    }
    if (!terms_.price_limit.empty() && at_limit(asset, session, change > 0.0, wanted.price)) {
        wanted.after = held;
        wanted.cut |= Cut::kPriceLimit;
        return;
    }
    const double room = volume_.room(asset, session);
    if (std::isnan(room)) {
        count(result_.unknown_volume, asset, session);
    }
    if (!(std::abs(change) <= room)) {
        const double most = std::isnan(room) ? 0.0 : whole_lots(room, step);
        wanted.after = held + std::copysign(most, change);
        wanted.cut |= Cut::kVolume;
    }
}

double Account::banded_weight(std::size_t asset, std::size_t session, double weight,
                              double held_weight) const {
    const BandTerms& band = terms_.band;
    // What is to be sold, turned or opened is always traded.
    if (band.width.empty() || weight * held_weight <= 0.0) {
        return weight;
    }
    const double width = band.width.at(session, asset) * (band.relative ? std::abs(weight) : 1.0);
    if (std::abs(held_weight - weight) <= width) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    return band.to_edge ? weight + std::copysign(width, held_weight - weight) : weight;
}

bool Account::can_borrow(std::size_t asset, std::size_t session) const {
    return terms_.borrow_rate.empty() || !std::isnan(terms_.borrow_rate.at(session, asset));
}

/// The last close of the days before a session's, less what splits and dividends have taken off
/// since; missing on the first day.
double Account::close_before(std::size_t asset, std::size_t session) const {
    const PriceTable& closes = prices_.close();
    std::size_t opened = session;
    while (opened > 0 && terms_.years[opened] == 0.0) { // bars of a day lie no days apart
        --opened;
    }
    if (opened == 0) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    std::size_t last = opened - 1;
    while (last > 0 && std::isnan(closes.at(last, asset))) {
        --last;
    }
    const double factor = splits_.at(asset, session);
    double price = closes.at(last, asset) / (factor / splits_.at(asset, last));
    std::span<const AssetEvent> paid = dividends_today_;
    if (last + 1 < session) {
        const auto from = std::ranges::upper_bound(
            terms_.dividends, static_cast<std::int64_t>(last), {}, &AssetEvent::session);
        const auto to = std::ranges::upper_bound(
            terms_.dividends, static_cast<std::int64_t>(session), {}, &AssetEvent::session);
        paid = {from, to};
    }
    for (const AssetEvent& event : paid) {
        if (event.asset == asset) {
            const auto when = static_cast<std::size_t>(event.session);
            price -= event.amount / (factor / splits_.at(asset, when));
        }
    }
    return price;
}

/// Whether the session opens at the limit on which nobody takes the other side.
bool Account::at_limit(std::size_t asset, std::size_t session, bool buy, double price) const {
    const double limit = terms_.price_limit.at(session, asset);
    const double reference = close_before(asset, session);
    const double quoted = currencies_.quoted(asset, session, price);
    const double opened = terms_.opens.empty() ? quoted : terms_.opens.at(session, asset);
    const double opens = std::isnan(opened) ? quoted : opened;
    const double last =
        within_limit(terms_.price_ticks, reference * (buy ? 1.0 + limit : 1.0 - limit), buy);
    return buy ? opens >= last * (1.0 - kLimitRounding) : opens <= last * (1.0 + kLimitRounding);
}

const Account::LastOrder* Account::take_back(std::size_t asset, std::size_t session) {
    LastOrder& order = orders_[asset];
    if (order.session != static_cast<std::int64_t>(session)) {
        return nullptr;
    }
    order.session = -1;
    traded_ = true;
    log_.add(AccountColumn::kImpact, -order.cost.impact);
    volume_.give_back(asset, std::abs(order.after - order.before));
    trips_.take_back(asset, order.before, order.after, order.price, order.cost.total());
    return &order;
}

void Account::note_unpaid(std::size_t session) { count(result_.unpaid, 0, session); }

void Account::note_cut(std::size_t asset, std::size_t session, Cut cut, std::int64_t rebalance) {
    for (std::size_t bit = 0; bit < result_.cuts.size(); ++bit) {
        if (has(cut, static_cast<Cut>(1U << bit))) {
            count(result_.cuts[bit], asset, session);
        }
    }
    trips_.cut(asset, cut, rebalance);
}

} // namespace corvex::engine::inline v1
