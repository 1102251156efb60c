#pragma once

#include "corvex/engine/trades/round_trip.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvex::engine::inline v1 {

/// Why an order traded less than was wanted; several may come together.
enum class Cut : std::uint8_t {
    kNone = 0,
    kBorrow = 1,     ///< cannot be borrowed
    kPriceLimit = 2, ///< opened at its limit
    kVolume = 4,     ///< more than the part of the volume, or the volume is missing
    kCash = 8,       ///< more than the cash
    kMargin = 16     ///< cut by the maintenance margin
};

constexpr Cut operator|(Cut a, Cut b) {
    return static_cast<Cut>(static_cast<std::uint8_t>(a) | static_cast<std::uint8_t>(b));
}
constexpr Cut& operator|=(Cut& a, Cut b) { return a = a | b; }
constexpr bool has(Cut cuts, Cut one) {
    return (static_cast<std::uint8_t>(cuts) & static_cast<std::uint8_t>(one)) != 0;
}

/// What a round trip comes to in money.
struct TripMoney {
    std::int32_t rebalance = -1; ///< with the asset, the key of its round trip
    std::int32_t asset = -1;
    double shares = 0.0;    ///< of the first fill, negative when short
    double money = 0.0;     ///< gained, with all that was paid and received
    double cost_rate = 0.0; ///< of the first fill's value
    double factor = 1.0;    ///< of the splits, at the first fill
    double dividends = 0.0; ///< for each share of the beginning, net
    Cut cut = Cut::kNone;
};

/// Follows the money of round trips. Trades of an asset count for its open round trip; what is
/// traded while none is open belongs to the one that opens next, or else to the one that ended.
class TripLedger {
  public:
    explicit TripLedger(std::size_t assets)
        : open_(assets, -1), last_(assets, -1), carried_(assets, 0.0) {}

    /// An order traded; both holdings in shares.
    void traded(std::size_t asset, double before, double after, double price, double cost);
    /// The same, taken back.
    void take_back(std::size_t asset, double before, double after, double price, double cost);
    /// Money that is no trade: dividends, borrowing.
    void received(std::size_t asset, double money) { post(asset, money); }
    void dividend(std::size_t asset, double for_a_share_of_the_beginning);
    /// An order traded less than was wanted. Where nothing of it could be traded yet, the trip that
    /// its rebalance opens later remembers it.
    void cut(std::size_t asset, Cut why, std::int64_t rebalance);
    /// The next order takes over the shares of a round trip that ends now.
    void hand_over(std::size_t asset, double shares, double price);

    void open(const TripMoney& trip);
    /// Ends the open round trip of an asset; nullptr where there is none.
    const TripMoney* close(std::size_t asset);
    /// The open round trip, nullptr where there is none.
    [[nodiscard]] const TripMoney* find(std::size_t asset) const;
    /// A holding that is still open counts at its value.
    void mark_open(std::size_t asset, double value);

    /// The records of round trips, in their order; of those that never filled an empty one.
    [[nodiscard]] std::vector<TripMoney> of(const std::vector<RoundTrip>& trips);

  private:
    void post(std::size_t asset, double money) {
        if (open_[asset] >= 0) {
            trips_[static_cast<std::size_t>(open_[asset])].money += money;
        } else {
            carried_[asset] += money;
        }
    }

    /// Cuts of an order of which nothing could be traded yet.
    struct Unopened {
        std::int64_t rebalance = -1;
        Cut cut = Cut::kNone;
    };

    std::vector<TripMoney> trips_;
    std::vector<Unopened> unopened_; ///< of each asset; empty without any
    std::vector<std::int64_t> open_;
    std::vector<std::int64_t> last_; ///< the one that ended last
    std::vector<double> carried_;
};

inline void TripLedger::traded(std::size_t asset, double before, double after, double price,
                               double cost) {
    const double change = after - before;
    const bool crosses = open_[asset] >= 0 && after != 0.0 && (before > 0.0) != (after > 0.0);
    if (!crosses) {
        post(asset, -(change * price + cost));
        return;
    }
    const double closing = before / (before - after);
    post(asset, before * price - cost * closing);
    carried_[asset] -= after * price + cost * (1.0 - closing);
}

} // namespace corvex::engine::inline v1
