#include "corvex/engine/trades/trade_log.hpp"

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

namespace corvex::engine::trades {

namespace {

constexpr std::size_t kMostReserved = std::size_t{1} << 18U;
constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

RoundTrip new_trip(std::size_t asset, std::int64_t rebalance, double weight) {
    RoundTrip trip{};
    trip.asset = static_cast<std::int64_t>(asset);
    trip.entry_rebalance = rebalance;
    trip.weight = weight;
    trip.entry_price = trip.exit_price = trip.net_return = trip.period = kMissing;
    return trip;
}

void set_exit(RoundTrip& trip, const ExitCause& cause) {
    trip.reason = cause.reason;
    trip.exit_signal_session = cause.signal_session;
    trip.exit_rebalance = cause.rebalance;
}

} // namespace

TradeLog::TradeLog(const portfolio::Costs& costs, std::size_t assets, std::size_t rebalances,
                   bool enabled)
    : costs_{costs}, open_(enabled ? assets : 0, -1) {
    if (enabled) {
        // Reserved memory that is never written costs nothing, growing would copy and write twice.
        trips_.reserve(std::min(assets * rebalances, kMostReserved));
    }
}

void TradeLog::open(std::size_t asset, std::int64_t rebalance, std::size_t session, double price,
                    double weight) {
    if (!enabled()) {
        return;
    }
    RoundTrip trip = new_trip(asset, rebalance, weight);
    trip.entry_session = static_cast<std::int64_t>(session);
    trip.entry_price = price;
    open_[asset] = static_cast<std::int64_t>(trips_.size());
    trips_.push_back(trip);
}

void TradeLog::close(std::size_t asset, std::size_t session, double price, const ExitCause& cause,
                     const ExcursionFigures& excursion) {
    if (!enabled()) {
        return;
    }
    RoundTrip& trip = trips_[static_cast<std::size_t>(std::exchange(open_[asset], -1))];
    set_exit(trip, cause);
    trip.exit_session = static_cast<std::int64_t>(session);
    trip.exit_price = price;
    trip.net_return =
        portfolio::round_trip_return(costs_, trip.weight > 0.0, trip.entry_price, price);
    trip.period = static_cast<double>(trip.exit_session - trip.entry_session);
    trip.excursion = excursion;
}

void TradeLog::signal_exit(std::size_t asset, const ExitCause& cause) {
    if (enabled()) {
        set_exit(trips_[static_cast<std::size_t>(open_[asset])], cause);
    }
}

void TradeLog::signal_entry(std::size_t asset, std::int64_t rebalance, double weight) {
    if (enabled()) {
        RoundTrip trip = new_trip(asset, rebalance, weight);
        trip.excursion = {kMissing, kMissing, kMissing, kMissing, kMissing};
        trips_.push_back(trip);
    }
}

void TradeLog::mark_open(std::size_t asset, std::size_t session, double price,
                         const ExcursionFigures& excursion) {
    if (!enabled()) {
        return;
    }
    RoundTrip& trip = trips_[static_cast<std::size_t>(open_[asset])];
    trip.net_return = portfolio::open_return(costs_, trip.weight > 0.0, trip.entry_price, price);
    trip.period = static_cast<double>(static_cast<std::int64_t>(session) - trip.entry_session);
    trip.excursion = excursion;
}

std::vector<RoundTrip> TradeLog::take_sorted() {
    // Only orders that waited for a price, or lie beyond the table, come out of order.
    const auto key = [](const RoundTrip& trip) {
        return std::tuple{trip.entry_rebalance, trip.asset};
    };
    if (!std::ranges::is_sorted(trips_, {}, key)) {
        std::ranges::sort(trips_, {}, key);
    }
    return std::exchange(trips_, {});
}

} // namespace corvex::engine::trades
