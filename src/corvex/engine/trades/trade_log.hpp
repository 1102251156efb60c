#pragma once

#include "corvex/engine/portfolio/costs.hpp"
#include "corvex/engine/trades/round_trip.hpp"

#include <cstddef>
#include <vector>

namespace corvex::engine::inline v1 {

/// Where an exit comes from.
struct ExitCause {
    ExitReason reason = ExitReason::kOpen;
    std::int64_t signal_session = -1;
    std::int64_t rebalance = -1;
};

/// What a log keeps of round trips.
enum class KeepTrips {
    kNone,
    kCounts, ///< only the open ones: for many runs, whose closed ones would fill the memory
    kAll,
};

/// Writes round trips as they open and close. A log that keeps none ignores every call.
class TradeLog {
  public:
    /// @param rebalances  with the assets, it bounds the number of round trips.
    TradeLog(const Costs& costs, std::size_t assets, std::size_t rebalances, KeepTrips keep);

    [[nodiscard]] bool enabled() const { return !open_.empty(); }

    void open(std::size_t asset, std::int64_t rebalance, std::size_t session, double price,
              double weight);
    /// Returns the record, nullptr from a log that is off.
    RoundTrip* close(std::size_t asset, std::size_t session, double price, const ExitCause& cause,
                     const ExcursionFigures& excursion);
    /// The exit of an open round trip is signalled, its fill lies beyond the table.
    void signal_exit(std::size_t asset, const ExitCause& cause);
    /// An entry is signalled, its fill lies beyond the table.
    void signal_entry(std::size_t asset, std::int64_t rebalance, double weight);
    /// Marks an open round trip at the last price; returns the record, nullptr from a log that is
    /// off.
    RoundTrip* mark_open(std::size_t asset, double price, const ExcursionFigures& excursion);

    /// The round trips by entry signal, then asset; none where only counts are kept. The log is
    /// empty afterwards.
    std::vector<RoundTrip> take_sorted();
    /// Of all that were closed, with the returns that the ratios of the costs tell.
    [[nodiscard]] const TripCounts& counts() const { return counts_; }

  private:
    [[nodiscard]] bool counts_only() const { return keep_ == KeepTrips::kCounts; }
    void add(const RoundTrip& trip);

    const Costs& costs_;
    KeepTrips keep_;
    TripCounts counts_;
    std::vector<RoundTrip> trips_;   ///< where only counts are kept: one place for each asset
    std::vector<std::int64_t> open_; ///< index of the open round trip of each asset, -1 = none
};

} // namespace corvex::engine::inline v1
