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

/// Writes round trips as they open and close. A log that is off ignores every call.
class TradeLog {
  public:
    /// @param rebalances  with the assets, it bounds the number of round trips.
    TradeLog(const Costs& costs, std::size_t assets, std::size_t rebalances, bool enabled);

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

    /// The round trips by entry signal, then asset. The log is empty afterwards.
    std::vector<RoundTrip> take_sorted();

  private:
    const Costs& costs_;
    std::vector<RoundTrip> trips_;
    std::vector<std::int64_t> open_; ///< index of the open round trip of each asset, -1 = none
};

} // namespace corvex::engine::inline v1
