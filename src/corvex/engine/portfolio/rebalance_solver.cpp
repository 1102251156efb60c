#include "corvex/engine/portfolio/rebalance_solver.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace corvex::engine::portfolio {

namespace {

constexpr std::size_t kLanes = 4;
constexpr double kCashTolerance = 1e-14;

} // namespace

RebalanceSolver::RebalanceSolver(const Costs& costs)
    : buy_rate_{costs.buy_rate()}, sell_rate_{costs.sell_rate()} {}

void RebalanceSolver::clear() {
    held_.clear();
    weight_.clear();
    long_weight_ = short_weight_ = stuck_weight_ = stuck_value_ = 0.0;
    has_stuck_ = false;
}

void RebalanceSolver::add(double held, double weight) {
    held_.push_back(held);
    weight_.push_back(weight);
    (weight > 0.0 ? long_weight_ : short_weight_) += weight;
}

void RebalanceSolver::add_stuck(double held, double weight) {
    stuck_value_ += held;
    stuck_weight_ += weight;
    has_stuck_ = true;
}

double RebalanceSolver::target_value(std::size_t index) const {
    const double weight = weight_[index];
    return weight > 0.0 ? weight * (longs_.slope * equity_ + longs_.offset) : weight * equity_;
}

double RebalanceSolver::cash_after(double invested) const {
    const double cash = equity_ - invested - stuck_value_;
    // Weights that sum to one leave no cash; a rounding error must not look like a debt.
    return cash < 0.0 && cash > -kCashTolerance * equity_ * 100.0 ? 0.0 : cash;
}

double RebalanceSolver::solve(double equity_before) {
    longs_ = {};
    equity_ = newton(equity_before);
    if (has_stuck_ && cash_falls_short(equity_)) {
        limit_to_cash(equity_before);
    }
    return equity_;
}

double RebalanceSolver::newton(double equity_before) const {
    if (buy_rate_ == 0.0 && sell_rate_ == 0.0) {
        return equity_before;
    }
    double equity = equity_before;
    for (int step = 0; step < 64; ++step) {
        // Separate lanes: one sum after the other would wait for each addition.
        std::array<double, kLanes> constant{};
        std::array<double, kLanes> slope{};
        const double long_base = longs_.slope * equity + longs_.offset;
        const auto add_asset = [&](std::size_t index, std::size_t lane) {
            const bool is_long = weight_[index] > 0.0;
            const double base = is_long ? long_base : equity;
            const bool buy = weight_[index] * base > held_[index];
            const double rate = buy ? buy_rate_ : -sell_rate_;
            const double offset = is_long ? weight_[index] * longs_.offset : 0.0;
            constant[lane] += rate * (offset - held_[index]);
            slope[lane] += rate * weight_[index] * (is_long ? longs_.slope : 1.0);
        };
        std::size_t index = 0;
        for (; index + kLanes <= held_.size(); index += kLanes) {
            for (std::size_t lane = 0; lane < kLanes; ++lane) {
                add_asset(index + lane, lane);
            }
        }
        for (; index < held_.size(); ++index) {
            add_asset(index, 0);
        }
        const double divisor = 1.0 + (slope[0] + slope[1]) + (slope[2] + slope[3]);
        if (!(divisor > 0.0)) {
            return 0.0;
        }
        const double constants = (constant[0] + constant[1]) + (constant[2] + constant[3]);
        const double next = (equity_before - constants) / divisor;
        if (std::abs(next - equity) <= 1e-15 * std::abs(equity)) {
            return next;
        }
        equity = next;
    }
    return equity;
}

bool RebalanceSolver::cash_falls_short(double equity) const {
    const double planned = std::min(0.0, 1.0 - (long_weight_ + short_weight_ + stuck_weight_));
    const double cash = equity * (1.0 - long_weight_ - short_weight_) - stuck_value_;
    return long_weight_ > 0.0 && cash < equity * (planned - kCashTolerance);
}

void RebalanceSolver::limit_to_cash(double equity_before) {
    const double planned = std::min(0.0, 1.0 - (long_weight_ + short_weight_ + stuck_weight_));
    longs_ = {(1.0 - short_weight_ - planned) / long_weight_, -stuck_value_ / long_weight_};
    equity_ = newton(equity_before);
    if (longs_.slope * equity_ + longs_.offset < 0.0) {
        longs_ = {0.0, 0.0};
        equity_ = newton(equity_before);
    }
}

} // namespace corvex::engine::portfolio
