#pragma once

#include "corvex/engine/portfolio/price_table.hpp"
#include "corvex/engine/trades/round_trip.hpp"

#include <cstddef>
#include <vector>

namespace corvex::engine::inline v1 {

/// Follows the excursions of all positions.
///
/// Closes are read in blocks of sessions while they are still in the cache, a few assets at a
/// time, so that the running figures of an asset stay in registers for the whole block. A short is
/// followed by its mirrored price, 2 x entry - price, whose return is the short's return. A
/// missing close is no observation.
class ExcursionTracker {
  public:
    ExcursionTracker(const PriceTable& close, std::size_t first_session, bool enabled);

    [[nodiscard]] bool enabled() const { return !side_.empty(); }

    /// Observes the closes of all sessions before `end`. To be called before positions open; the
    /// closes from `end` on are theirs.
    void observe_before(std::size_t end);
    /// The same once a block is full, so that the closes are read while still cached.
    void observe_block(std::size_t end);

    /// Follows a new position by its entry fill price, slippage in.
    void open(std::size_t asset, bool is_long, double fill_price);

    /// Prices from the first one that has not been observed are those of the several shares that
    /// one becomes.
    void split(std::size_t asset, double ratio);

    /// Figures of a position that exits at a quoted price after the closes before `end`.
    /// @param counts_as_bar  whether the exit is a bar of its own, for the days in profit.
    ExcursionFigures close(std::size_t asset, std::size_t end, double price, bool counts_as_bar);

    /// Figures of a position that is still open, after the closes before `end`.
    ExcursionFigures figures(std::size_t asset, std::size_t end);

  private:
    void observe_strip(std::size_t asset, std::size_t begin, std::size_t end);
    void observe_asset(std::size_t asset, std::size_t end);
    void observe_price(std::size_t asset, double price);

    const PriceTable& close_;
    std::size_t next_session_; ///< closes before it have been observed
    std::vector<double>
        side_; ///< 1 long, -1 short, 0 none: price x side + shift is the mirrored price
    std::vector<double> shift_;
    std::vector<double> entry_;
    std::vector<double> lowest_;
    std::vector<double> highest_;
    std::vector<double> highest_at_lowest_;
    std::vector<double> trough_; ///< price and peak of the largest drawdown so far
    std::vector<double> peak_;
    std::vector<double> profit_bars_;
};

} // namespace corvex::engine::inline v1
