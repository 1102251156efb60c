#include "corvex/engine/account/target_solver.hpp"

#include <algorithm>
#include <cmath>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kCashTolerance = 1e-14;
constexpr double kRounding = 1e-12;

} // namespace

void TargetSolver::clear() {
    lines_.clear();
    long_weight_ = short_weight_ = fixed_weight_ = fixed_value_ = 0.0;
    has_fixed_ = false;
}

void TargetSolver::add(const Line& line) {
    lines_.push_back(line);
    (line.weight > 0.0 ? long_weight_ : short_weight_) += line.weight;
}

void TargetSolver::add_fixed(double value, double weight) {
    fixed_value_ += value;
    fixed_weight_ += weight;
    has_fixed_ = true;
}

double TargetSolver::value(const Line& line, double equity) const {
    return line.weight > 0.0 ? line.weight * (long_slope_ * equity + long_offset_)
                             : line.weight * equity;
}

double TargetSolver::shares(std::size_t index) const {
    return value(lines_[index], equity_) / lines_[index].price;
}

double TargetSolver::costs_at(double equity) const {
    double total = 0.0;
    for (const Line& line : lines_) {
        const double change = value(line, equity) / line.price - line.shares;
        // What is held already takes no order, and no minimum fee.
        if (line.weight != 0.0 && std::abs(change * line.price) <= kRounding * equity) {
            continue;
        }
        total += costs_.of(line.asset, change, line.price, line.impact, line.rate).total();
    }
    return total;
}

/// The root of  equity + costs(equity) - equity before  by secants. The function is piecewise
/// smooth; a minimum fee makes it jump, so that the step without slope stands in where a secant
/// leads nowhere.
double TargetSolver::settle(double equity_before) const {
    double costs = costs_at(equity_before);
    if (costs == 0.0) {
        return equity_before;
    }
    double last = equity_before;
    double last_gap = costs;
    double equity = equity_before - costs;
    for (int step = 0; step < 64; ++step) {
        costs = costs_at(equity);
        const double gap = equity + costs - equity_before;
        if (std::abs(gap) <= kRounding * equity_before) {
            break;
        }
        const double slope = (gap - last_gap) / (equity - last);
        last = equity;
        last_gap = gap;
        equity = slope > 0.1 ? equity - gap / slope : equity_before - costs;
    }
    return equity_before - costs; // the last digits, without the cancellation of a secant
}

double TargetSolver::solve(double equity_before) {
    long_slope_ = 1.0;
    long_offset_ = 0.0;
    equity_ = settle(equity_before);
    const double planned = std::min(0.0, 1.0 - (long_weight_ + short_weight_ + fixed_weight_));
    const double cash = equity_ * (1.0 - long_weight_ - short_weight_) - fixed_value_;
    if (has_fixed_ && long_weight_ > 0.0 && cash < equity_ * (planned - kCashTolerance)) {
        long_slope_ = (1.0 - short_weight_ - planned) / long_weight_;
        long_offset_ = -fixed_value_ / long_weight_;
        equity_ = settle(equity_before);
        if (long_slope_ * equity_ + long_offset_ < kRounding * equity_) {
            long_slope_ = long_offset_ = 0.0;
            equity_ = settle(equity_before);
        }
    }
    equity_ = std::max(equity_, 0.0);
    return equity_;
}

} // namespace corvex::engine::inline v1
