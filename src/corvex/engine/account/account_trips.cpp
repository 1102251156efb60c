// An account's side of round trips: what they return and come to in money.
#include "corvex/engine/account/account.hpp"

#include <cmath>

namespace corvex::engine::inline v1 {

/// The order of a session that bought (or sold) an asset; nullptr where a stop was netted with it.
const Account::LastOrder* Account::order_of(std::size_t asset, std::size_t session,
                                            bool buy) const {
    const LastOrder& order = orders_[asset];
    const bool same = order.session == static_cast<std::int64_t>(session) && order.value() > 0.0;
    return same && (order.after > order.before) == buy ? &order : nullptr;
}

/// What an asset's order of this session cost of its value; without one, what its ratios tell.
double Account::cost_rate(std::size_t asset, std::size_t session, bool buy) const {
    if (const LastOrder* order = order_of(asset, session, buy)) {
        return order->cost.total() / order->value();
    }
    const Costs ratios = costs_.ratios(asset);
    return buy ? ratios.buy_rate() : ratios.sell_rate();
}

double Account::executed_price(std::size_t asset, std::size_t session, double price,
                               bool is_long) const {
    if (const LastOrder* order = order_of(asset, session, is_long)) {
        const double moved = (order->cost.slippage + order->cost.impact) / order->value();
        return price * (is_long ? 1.0 + moved : 1.0 - moved);
    }
    return costs_.ratios(asset).executed(price, is_long);
}

void Account::open_trip(std::size_t asset, std::int64_t rebalance, std::size_t session,
                        double shares) {
    TripMoney trip{.rebalance = static_cast<std::int32_t>(rebalance),
                   .asset = static_cast<std::int32_t>(asset),
                   .shares = shares};
    trip.cost_rate = cost_rate(asset, session, shares > 0.0);
    trip.factor = splits_.at(asset, session);
    trips_.open(trip);
}

/// @param price_per_first_share  of what one share of the first fill has become.
double Account::trip_return(const TripMoney& money, const RoundTrip& trip,
                            double price_per_first_share, double rate) const {
    const double dividends = money.dividends / money.factor;
    if (trip.weight > 0.0) {
        const double paid = trip.entry_price * (1.0 + money.cost_rate);
        return (price_per_first_share * (1.0 - rate) + dividends) / paid - 1.0;
    }
    const double received = trip.entry_price * (1.0 - money.cost_rate);
    return 1.0 - (price_per_first_share * (1.0 + rate) + dividends) / received;
}

void Account::close_trip(std::size_t asset, std::size_t session, double price, RoundTrip* trip) {
    const TripMoney* money = trips_.close(asset);
    if (money != nullptr && trip != nullptr) {
        const double grown = splits_.at(asset, session) / money->factor;
        trip->net_return = trip_return(*money, *trip, price * grown,
                                       cost_rate(asset, session, trip->weight < 0.0));
    }
}

void Account::mark_open(std::size_t asset, std::size_t session, double shares, double price,
                        RoundTrip* trip) {
    if (const TripMoney* money = trips_.find(asset); money != nullptr && trip != nullptr) {
        const double grown = splits_.at(asset, session) / money->factor;
        trip->net_return =
            trip_return(*money, *trip, currencies_.quoted(asset, session, price) * grown, 0.0);
    }
    trips_.mark_open(asset, shares * price);
}

} // namespace corvex::engine::inline v1
