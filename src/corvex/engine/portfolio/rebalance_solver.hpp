#pragma once

#include "corvex/engine/portfolio/costs.hpp"

#include <cstddef>
#include <vector>

namespace corvex::engine::inline v1 {

/// Finds the equity after the costs of a rebalance together with the holdings that follow from it.
///
/// Each holding is to be weight x equity *after* costs, and the costs depend on the holdings. The
/// condition  equity + costs(equity) = equity before  is piecewise linear and convex in the
/// equity, so Newton's method ends exactly, after as many steps as the set of sold assets changes.
class RebalanceSolver {
  public:
    RebalanceSolver(const Costs& costs, std::size_t assets);

    void clear();
    /// An asset that can be traded now, by its value held, its price and its target weight.
    void add(double held, double price, double weight) {
        held_[size_] = held;
        price_[size_] = price;
        weight_[size_] = weight;
        ++size_;
        (weight > 0.0 ? long_weight_ : short_weight_) += weight;
    }
    /// An asset that cannot: its value stays, whatever its target.
    void add_stuck(double held, double weight);

    /// Solves for the equity after costs; 0 when the costs leave none.
    ///
    /// Unsellable holdings can leave too little cash for the other targets. Then the long targets
    /// are scaled down together, so that cash does not fall below zero, or below what the weights
    /// plan where they sum to more than one.
    double solve(double equity_before);

    /// What the solution trades, in quoted values, and the cash that remains.
    struct Trades {
        double bought;
        double sold;
        double cash;
    };
    /// Works the trades out; shares() follows.
    Trades trade();
    /// The new number of shares of an asset.
    [[nodiscard]] double shares(std::size_t index) const { return shares_[index]; }
    [[nodiscard]] double price(std::size_t index) const { return price_[index]; }
    [[nodiscard]] double weight(std::size_t index) const { return weight_[index]; }
    [[nodiscard]] std::size_t size() const { return size_; }

  private:
    /// Costs as constant + slope x equity, while no asset changes between bought and sold.
    struct CostLine {
        double constant;
        double slope;
    };

    [[nodiscard]] double newton(double equity_before) const;
    [[nodiscard]] CostLine costs_near(double equity) const;
    void set_long_targets(double slope, double offset);
    [[nodiscard]] bool cash_falls_short(double equity) const;
    void limit_to_cash(double equity_before);

    double buy_rate_;
    double sell_rate_;
    std::size_t size_ = 0;
    std::vector<double> held_;
    std::vector<double> price_;
    std::vector<double> weight_;
    std::vector<double> shares_;
    std::vector<double> per_equity_; ///< target = per_equity x equity + offset
    std::vector<double> offset_;
    double long_weight_ = 0.0;
    double short_weight_ = 0.0;
    double stuck_weight_ = 0.0;
    double stuck_value_ = 0.0;
    bool has_stuck_ = false;
    double equity_ = 0.0;
};

} // namespace corvex::engine::inline v1
