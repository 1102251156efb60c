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

    /// @param most  how many lines there may come to be.
    void clear(std::size_t most);
    void add(const Line& line);
    /// A holding that is not traded: its value stays, whatever its target.
    void add_fixed(double value, double weight);

    /// Solves for the equity after costs; 0 when the costs leave none.
    double solve(double equity_before);

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] std::uint32_t asset(std::size_t index) const { return assets_of_lines_[index]; }
    [[nodiscard]] double price(std::size_t index) const { return columns_.price[index]; }
    /// The exact holding of a line.
    [[nodiscard]] double shares(std::size_t index) const;

  private:
    /// The lines side by side, with the ratios of their assets.
    struct Columns {
        std::vector<double> shares;
        std::vector<double> price;
        std::vector<double> weight;
        std::vector<double> fee;
        std::vector<double> minimum;
        std::vector<double> per_share;
        std::vector<double> tax;
        std::vector<double> slippage;
        std::vector<double> impact;
        std::vector<double> rate;

        void make_room(std::size_t lines);
        void set(std::size_t place, const Line& line, const Costs& ratios, const Commission& own);
    };
    struct At {
        double equity;
        double long_equity; ///< that long weights are a part of
        double dust;        ///< orders of no more are none
    };
    /// What the lines would trade at an equity, and what that costs.
    struct Orders {
        std::vector<double> change;  ///< shares
        std::vector<double> moved;   ///< ratio of the impact
        std::vector<double> nominal; ///< the executed value, in the asset's currency
        std::vector<double> fee;     ///< what ratio or table ask for
        std::vector<double> cost;

        void resize(std::size_t lines);
    };

    static void find_changes(const Columns& lines, const At& at, Orders& orders);
    static void find_impact(const Columns& lines, Orders& orders);
    static void find_values(const Columns& lines, Orders& orders);
    static void convert(const Columns& lines, Orders& orders);
    static void find_fees(const Columns& lines, std::span<const FeeStep> table, Orders& orders);
    static void find_costs(const Columns& lines, const At& at, double max_ratio, Orders& orders);
    [[nodiscard]] double costs_at(double equity) const;
    [[nodiscard]] double settle(double equity_before) const;

    const OrderCosts& costs_;
    std::size_t size_ = 0;
    std::vector<std::uint32_t> assets_of_lines_;
    Columns columns_;
    mutable Orders orders_;
    bool has_impact_ = false;
    bool has_rates_ = false; ///< of other currencies
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
