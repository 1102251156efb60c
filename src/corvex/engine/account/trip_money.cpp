#include "corvex/engine/account/trip_money.hpp"

#include <algorithm>
#include <tuple>
#include <utility>

namespace corvex::engine::inline v1 {

void TripLedger::take_back(std::size_t asset, double before, double after, double price,
                           double cost) {
    post(asset, (after - before) * price + cost);
}

void TripLedger::dividend(std::size_t asset, double for_a_share_of_the_beginning) {
    if (open_[asset] >= 0) {
        trips_[static_cast<std::size_t>(open_[asset])].dividends += for_a_share_of_the_beginning;
    }
}

void TripLedger::cut(std::size_t asset, Cut why, std::int64_t rebalance) {
    if (open_[asset] >= 0) {
        trips_[static_cast<std::size_t>(open_[asset])].cut |= why;
        return;
    }
    unopened_.resize(open_.size());
    Unopened& order = unopened_[asset];
    order = {rebalance, order.rebalance == rebalance ? order.cut | why : why};
}

void TripLedger::hand_over(std::size_t asset, double shares, double price) {
    post(asset, shares * price);
    carried_[asset] -= shares * price;
}

void TripLedger::open(const TripMoney& trip) {
    const auto asset = static_cast<std::size_t>(trip.asset);
    open_[asset] = static_cast<std::int64_t>(trips_.size());
    trips_.push_back(trip);
    trips_.back().money += std::exchange(carried_[asset], 0.0);
    if (!unopened_.empty() && unopened_[asset].rebalance == trip.rebalance) {
        trips_.back().cut |= unopened_[asset].cut;
    }
}

const TripMoney* TripLedger::close(std::size_t asset) {
    if (open_[asset] < 0) {
        return nullptr;
    }
    last_[asset] = std::exchange(open_[asset], -1);
    return &trips_[static_cast<std::size_t>(last_[asset])];
}

const TripMoney* TripLedger::find(std::size_t asset) const {
    return open_[asset] < 0 ? nullptr : &trips_[static_cast<std::size_t>(open_[asset])];
}

void TripLedger::mark_open(std::size_t asset, double value) { post(asset, value); }

std::vector<TripMoney> TripLedger::of(const std::vector<RoundTrip>& trips) {
    // Shares that an order took over and sold at once leave their cost to the trip that had them.
    for (std::size_t asset = 0; asset < carried_.size(); ++asset) {
        if (last_[asset] >= 0) {
            trips_[static_cast<std::size_t>(last_[asset])].money +=
                std::exchange(carried_[asset], 0.0);
        }
    }
    const auto key = [](const TripMoney& trip) { return std::tuple{trip.rebalance, trip.asset}; };
    std::ranges::sort(trips_, {}, key);
    std::vector<TripMoney> found(trips.size());
    for (std::size_t k = 0; k < trips.size(); ++k) {
        const std::tuple wanted{trips[k].entry_rebalance, trips[k].asset};
        const auto at = std::ranges::lower_bound(trips_, wanted, {}, key);
        if (trips[k].filled() && at != trips_.end() && key(*at) == wanted) {
            found[k] = *at;
        }
    }
    return found;
}

} // namespace corvex::engine::inline v1
