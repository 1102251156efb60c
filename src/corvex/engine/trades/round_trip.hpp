#pragma once

#include "corvex/engine/trades/exit_reason.hpp"

#include <cstdint>

namespace corvex::engine::inline v1 {

/// How far a position moved while it was held, as returns on its entry fill price (slippage in,
/// fees out), from closes and the exit fill; a move that never happened is 0.
struct ExcursionFigures {
    double mae = 0.0;            ///< most adverse, <= 0
    double mfe = 0.0;            ///< most favourable, >= 0
    double mfe_before_mae = 0.0; ///< most favourable up to the bar of the most adverse
    double max_drawdown = 0.0;   ///< largest fall from the position's own peak, <= 0
    double days_in_profit = 0.0; ///< bars whose close lay on the winning side
};

/// From weight zero to zero, or to a change of sign. Sessions and rows are -1 where there is none,
/// prices and returns NaN. There can be many, so the record is kept narrow.
struct RoundTrip {
    std::int32_t asset;
    std::int32_t entry_rebalance;
    std::int32_t exit_rebalance = -1;
    std::int32_t exit_signal_session = -1;
    std::int32_t entry_session = -1;
    std::int32_t exit_session = -1;
    std::int32_t days_in_profit = 0;
    ExitReason reason = ExitReason::kOpen;
    double entry_price; ///< quoted, before slippage
    double exit_price;
    double weight; ///< target weight at the entry
    double net_return;
    double mae; ///< this and the next three as in ExcursionFigures
    double mfe;
    double mfe_before_mae;
    double max_drawdown;

    [[nodiscard]] bool filled() const { return entry_session >= 0; }
};

/// What can be told of the round trips of a run without keeping them.
struct TripCounts {
    std::int64_t closed = 0;
    std::int64_t won = 0; ///< of the closed: with a net return above zero
};

} // namespace corvex::engine::inline v1
