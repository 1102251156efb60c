#pragma once

#include "corvex/engine/core/dates.hpp"
#include "corvex/engine/portfolio/options.hpp"
#include "corvex/engine/portfolio/price_set.hpp"
#include "corvex/engine/portfolio/simulation_input.hpp"
#include "corvex/engine/statistics/figure_list.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// A plan and the options that it is run with, by their numbers.
struct BatchRun {
    std::size_t plan;
    std::size_t options;
};

/// How the curve of a run is read for its figures.
struct Calendar {
    std::span<const Nanos> times;         ///< wall time of each session of the price table
    std::span<const std::int64_t> closes; ///< rows that end a day, all of them for longer bars
    /// For each plan the time one bar before its first session: where a run costs or earns
    /// something in that session, its curve starts there at 1.
    std::span<const Nanos> before_first;
};

/// Many runs over shared prices.
struct Batch {
    const PriceSet& prices;
    std::span<const Plan> plans;
    std::span<const Options> options;
    std::span<const BatchRun> runs;
    Calendar calendar;
    double riskfree_rate = 0.02;
    std::size_t blocks = 0; ///< of the sessions, over which returns are summed; 0 = no sums
    /// Receives the equity of each run at each session, 1 before it starts; empty = off.
    std::span<double> curves{};
    unsigned threads = 0; ///< 0 = one for each core
};

/// What is kept of a run.
struct RunSummary {
    std::array<double, kFigureCount> figures; ///< of its curve, as the statistics record has them
    double fees;                              ///< paid in all, in units of the initial equity
    double taxes;
    double slippage;
    double turnover;     ///< half of the traded value over the equity, per year of 365.25 days
    double win_rate;     ///< of the closed trades; NaN without any
    std::int64_t trades; ///< closed
    std::int64_t ruin_session;   ///< -1 = none
    std::int64_t begins;         ///< session of the curve's first value, 1; -1 = one bar before all
    std::vector<double> sums;    ///< of the returns from session to session, block by block
    std::vector<double> squares; ///< of the same
};

/// Runs a batch. Each run gives the bits that it gives alone, whatever runs beside it, on however
/// many threads.
///
/// Several runs go through the prices together, a block of sessions after the other, so that a
/// block is read from memory once.
/// @throws std::invalid_argument as validate() does for any of the runs, or for a run that names a
///         plan or options that are not there.
std::vector<RunSummary> run_batch(const Batch& batch);

} // namespace corvex::engine::inline v1
