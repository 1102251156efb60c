#pragma once

#include "corvex/engine/portfolio/costs.hpp"
#include "corvex/engine/portfolio/rebalance_solver.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// A rebalance in which every asset that is held or wanted can be traded: the same as
/// RebalanceSolver's, four assets at a time and without listing them first.
///
/// Newton's method starts at what the costs of the rebalance before suggest. That is nearly always
/// so close to the solution that no asset changes between bought and sold on the way: one step
/// finds the solution, and the pass that works the trades out proves it.
class RowRebalance {
  public:
    RowRebalance(const Costs& costs, std::size_t assets);

    /// One value for each asset.
    struct Row {
        std::span<const double> shares;
        std::span<const double> prices; ///< at which orders fill
        std::span<const double> weights;
        /// Prices and weights of the rebalance that may come next; empty = none.
        std::span<const double> next_prices{};
        std::span<const double> next_weights{};
    };

    /// What the row is about before anything is traded.
    struct Sums {
        double value;  ///< of the holdings; NaN when one that is held or wanted cannot be traded
        double weight; ///< all targets together
    };
    Sums read(const Row& row);

    /// What the solution trades, and the cash that remains. Its equity is 0 when the costs leave
    /// none; then nothing else counts.
    struct Solution {
        double equity;
        RebalanceSolver::Trades trades;
    };
    /// Solves the row that was read last; shares() and turned() follow.
    Solution solve(const Row& row, double equity_before);

    /// The new shares of each asset.
    [[nodiscard]] std::span<const double> shares() const {
        return std::span(shares_).first(assets_);
    }
    /// Assets whose holding begins, ends or changes sides; ascending.
    [[nodiscard]] const std::vector<std::uint32_t>& turned() const { return turned_; }

  private:
    struct Pass;
    [[nodiscard]] double step(const Row& row, double equity_before, double equity) const;
    Pass trade(const Row& row, double equity);
    void list_turned(std::span<const double> before, bool any_turned);

    double buy_rate_;
    double sell_rate_;
    std::size_t assets_;
    std::vector<double> held_; ///< values; padded to whole lanes, as the new shares are
    std::vector<double> shares_;
    std::vector<std::uint32_t> turned_;
    double cost_share_ = 0.0; ///< of the equity, in the rebalance before
};

} // namespace corvex::engine::inline v1
