#pragma once

#include "corvex/engine/account/order_costs.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// Finds the equity after the costs of a rebalance, and the exact holdings that follow from it,
/// where each order has costs of its own.
///
/// It means what RebalanceSolver means: weight x equity after costs, and long targets scaled down
/// together where holdings that do not trade leave too little cash.
class TargetSolver {
  public:
    struct Line {
        std::uint32_t asset;
        double shares; ///< held
        double price;
        double weight;
        double impact; ///< as OrderCosts::of takes it
        double rate;   ///< the same
    };

    explicit TargetSolver(const OrderCosts& costs) : costs_{costs} {}

    void clear();
    void add(const Line& line);
    /// A holding that is not traded: its value stays, whatever its target.
    void add_fixed(double value, double weight);

    /// Solves for the equity after costs; 0 when the costs leave none.
    double solve(double equity_before);

    [[nodiscard]] const std::vector<Line>& lines() const { return lines_; }
    /// The exact holding of a line.
    [[nodiscard]] double shares(std::size_t index) const;

  private:
    /// The lines side by side, with the ratios of their assets.
    struct Columns {
        std::vector<double> shares;
        std::vector<double> price;
        std::vector<double> weight;
        std::vector<double> fee;
        std::vector<double> tax;
        std::vector<double> slippage;

        void clear();
        void add(const Line& line, const Costs& ratios);
    };
    struct PlainCosts {
        double minimum;
        double per_share;
        double max_ratio;
        double equity;
        double long_equity; ///< that long weights are a part of
        double dust;        ///< orders of no more are none
    };

    static void plain_costs(const Columns& lines, const PlainCosts& terms, std::span<double> out);
    [[nodiscard]] double plain_costs_at(double equity) const;
    [[nodiscard]] double value(const Line& line, double equity) const;
    [[nodiscard]] double costs_at(double equity) const;
    [[nodiscard]] double settle(double equity_before) const;

    const OrderCosts& costs_;
    std::vector<Line> lines_;
    Columns columns_;
    mutable std::vector<double> costs_of_lines_;
    bool plain_ = true; ///< no fee table, no impact, one currency
    double long_weight_ = 0.0;
    double short_weight_ = 0.0;
    double fixed_weight_ = 0.0;
    double fixed_value_ = 0.0;
    bool has_fixed_ = false;
    double long_slope_ = 1.0; ///< a long target is weight x (slope x equity + offset)
    double long_offset_ = 0.0;
    double equity_ = 0.0;
};

} // namespace corvex::engine::inline v1
