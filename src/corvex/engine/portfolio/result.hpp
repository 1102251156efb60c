#pragma once

#include "corvex/engine/account/account_log.hpp"
#include "corvex/engine/portfolio/fill_log.hpp"
#include "corvex/engine/trades/round_trip.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace corvex::engine::inline v1 {

/// Where a run's curve belongs to the strategy.
struct CurveStart {
    std::size_t row = 0; ///< ahead of the first fill: time before it is no time of the strategy
    bool led = false;    ///< it costs or earns something there, so it begins one bar before, at 1
};

/// What a simulation hands over. The series begin at the first session of the input.
struct SimulationResult {
    std::vector<double> equity; ///< at each close, 1 before the first fill, 0 from a ruin on
    std::vector<double> cash;
    std::vector<double> fees; ///< paid in each session, in units of the initial equity
    std::vector<double> taxes;
    std::vector<double> slippage;
    std::vector<double> traded;            ///< quoted value of buys and sells
    std::vector<std::size_t> trading_rows; ///< ascending; in all others these four are zero
    std::vector<RoundTrip> round_trips;
    TripCounts trip_counts; ///< by the ratios of the costs: an account's trips tell their own
    Fills fills;
    std::int64_t ruin_session = -1;
    std::int64_t executed_rebalance = -1;

    // The state after the last session, one entry for each asset.
    std::vector<double> weights_in_force;
    std::vector<double> shares;
    /// Of an asset closed since the last rebalance, or kept out of that one after a stop.
    std::vector<ExitReason> out_reason;
    std::vector<ExitReason> pending_reason;      ///< of a stop that waits for its fill
    std::vector<std::int64_t> pending_session;   ///< on which it fired, -1 = none
    std::vector<std::int64_t> waiting_rebalance; ///< whose order waits for a price, -1 = none
    std::vector<std::int64_t> cooldown; ///< in how many more rebalances a stopped asset stays out

    std::optional<AccountResult> account; ///< of a run that keeps one

    /// Row 0 where nothing is filled or there are no sessions. Cash that has earned something
    /// before the first fill is part of the curve, and so are deposits and withdrawals.
    [[nodiscard]] CurveStart curve_start() const;
};

} // namespace corvex::engine::inline v1
