#include "corvex/engine/trades/trade_log.hpp"

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

namespace corvex::engine::inline v1 {

namespace {

constexpr std::size_t kMostReserved = std::size_t{1} << 18U;
constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

/// Rows and columns of a table fit easily; -1 stays -1.
template <typename Whole>
std::int32_t narrow(Whole value) {
    return static_cast<std::int32_t>(value);
}

void set_excursion(RoundTrip& trip, const ExcursionFigures& figures) {
    trip.mae = figures.mae;
    trip.mfe = figures.mfe;
    trip.mfe_before_mae = figures.mfe_before_mae;
    trip.max_drawdown = figures.max_drawdown;
    trip.days_in_profit = narrow(figures.days_in_profit);
}

RoundTrip new_trip(std::size_t asset, std::int64_t rebalance, double weight) {
    RoundTrip trip{};
    trip.asset = narrow(asset);
    trip.entry_rebalance = narrow(rebalance);
    trip.weight = weight;
    trip.entry_price = trip.exit_price = trip.net_return = kMissing;
    trip.mae = trip.mfe = trip.mfe_before_mae = trip.max_drawdown = kMissing;
    return trip;
}

void set_exit(RoundTrip& trip, const ExitCause& cause) {
    trip.reason = cause.reason;
    trip.exit_signal_session = narrow(cause.signal_session);
    trip.exit_rebalance = narrow(cause.rebalance);
}

} // namespace

TradeLog::TradeLog(const Costs& costs, std::size_t assets, std::size_t rebalances, KeepTrips keep)
    : costs_{costs}, keep_{keep}, open_(keep == KeepTrips::kNone ? 0 : assets, -1) {
    if (keep == KeepTrips::kAll) {
        // Reserved memory that is never written costs nothing, growing would copy and write twice.
        trips_.reserve(std::min(assets * rebalances, kMostReserved));
    } else if (counts_only()) {
        trips_.resize(assets);
    }
}

void TradeLog::add(const RoundTrip& trip) {
    const auto asset = static_cast<std::size_t>(trip.asset);
    if (counts_only()) {
        trips_[asset] = trip;
        open_[asset] = trip.asset;
        return;
    }
    open_[asset] = static_cast<std::int64_t>(trips_.size());
    trips_.push_back(trip);
}

void TradeLog::open(std::size_t asset, std::int64_t rebalance, std::size_t session, double price,
                    double weight) {
    if (!enabled()) {
        return;
    }
    RoundTrip trip = new_trip(asset, rebalance, weight);
    trip.entry_session = narrow(session);
    trip.entry_price = price;
    add(trip);
}

RoundTrip* TradeLog::close(std::size_t asset, std::size_t session, double price,
                           const ExitCause& cause, const ExcursionFigures& excursion) {
    if (!enabled()) {
        return nullptr;
    }
    RoundTrip& trip = trips_[static_cast<std::size_t>(std::exchange(open_[asset], -1))];
    set_exit(trip, cause);
    trip.exit_session = narrow(session);
    trip.exit_price = price;
    trip.net_return = round_trip_return(costs_, trip.weight > 0.0, trip.entry_price, price);
    set_excursion(trip, excursion);
    ++counts_.closed;
    counts_.won += trip.net_return > 0.0 ? 1 : 0;
    return &trip;
}

void TradeLog::signal_exit(std::size_t asset, const ExitCause& cause) {
    if (enabled()) {
        set_exit(trips_[static_cast<std::size_t>(open_[asset])], cause);
    }
}

void TradeLog::signal_entry(std::size_t asset, std::int64_t rebalance, double weight) {
    if (enabled() && !counts_only()) {
        trips_.push_back(new_trip(asset, rebalance, weight));
    }
}

RoundTrip* TradeLog::mark_open(std::size_t asset, double price, const ExcursionFigures& excursion) {
    if (!enabled()) {
        return nullptr;
    }
    RoundTrip& trip = trips_[static_cast<std::size_t>(open_[asset])];
    trip.net_return = open_return(costs_, trip.weight > 0.0, trip.entry_price, price);
    set_excursion(trip, excursion);
    return &trip;
}

std::vector<RoundTrip> TradeLog::take_sorted() {
    if (counts_only()) {
        return {};
    }
    // Only orders that waited for a price, or lie beyond the table, come out of order.
    const auto key = [](const RoundTrip& trip) {
        return std::tuple{trip.entry_rebalance, trip.asset};
    };
    if (!std::ranges::is_sorted(trips_, {}, key)) {
        std::ranges::sort(trips_, {}, key);
    }
    return std::exchange(trips_, {});
}

} // namespace corvex::engine::inline v1
