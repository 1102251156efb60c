#include "corvex/engine/portfolio/rebalance_solver.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <cmath>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kCashTolerance = 1e-14;
constexpr double kRounding = 1e-12;

} // namespace

RebalanceSolver::RebalanceSolver(const Costs& costs, std::size_t assets)
    : buy_rate_{costs.buy_rate()}, sell_rate_{costs.sell_rate()}, held_(assets + kLanes),
      price_(assets + kLanes), weight_(assets + kLanes), shares_(assets + kLanes),
      per_equity_(assets + kLanes), offset_(assets + kLanes) {}

void RebalanceSolver::clear() {
    size_ = 0;
    long_weight_ = short_weight_ = stuck_weight_ = stuck_value_ = 0.0;
    has_stuck_ = false;
}

void RebalanceSolver::add_stuck(double held, double weight) {
    stuck_value_ += held;
    stuck_weight_ += weight;
    has_stuck_ = true;
}

CORVEX_VECTOR_CLONES
RebalanceSolver::Trades RebalanceSolver::trade() {
    Lanes bought{};
    Lanes net{};
    Lanes invested{};
    for (std::size_t k = 0; k < size_; k += kLanes) {
        Lanes held;
        Lanes price;
        Lanes per_equity;
        Lanes offset;
        load(&held_[k], held);
        load(&price_[k], price);
        load(&per_equity_[k], per_equity);
        load(&offset_[k], offset);
        const Lanes value = per_equity * equity_ + offset;
        const Lanes change = value - held;
        bought += change > 0.0 ? change : Lanes{};
        net += change;
        invested += value;
        store(value / price, &shares_[k]);
    }
    double cash = equity_ - sum(invested) - stuck_value_;
    // Weights that sum to one leave no cash; a rounding error must not look like a debt.
    if (cash < 0.0 && cash > -kRounding * equity_) {
        cash = 0.0;
    }
    return {sum(bought), sum(bought) - sum(net), cash};
}

double RebalanceSolver::solve(double equity_before) {
    // The padding beside the last asset holds nothing and wants nothing.
    for (std::size_t k = size_; k < size_ + kLanes; ++k) {
        held_[k] = weight_[k] = per_equity_[k] = offset_[k] = 0.0;
        price_[k] = 1.0;
    }
    set_long_targets(1.0, 0.0);
    equity_ = newton(equity_before);
    if (has_stuck_ && cash_falls_short(equity_)) {
        limit_to_cash(equity_before);
    }
    equity_ = std::max(equity_, 0.0);
    return equity_;
}

/// Long targets become weight x (slope x equity + offset); shorts stay at weight x equity.
void RebalanceSolver::set_long_targets(double slope, double offset) {
    for (std::size_t k = 0; k < size_; ++k) {
        per_equity_[k] = weight_[k] > 0.0 ? weight_[k] * slope : weight_[k];
        offset_[k] = weight_[k] > 0.0 ? weight_[k] * offset : 0.0;
    }
}

double RebalanceSolver::newton(double equity_before) const {
    if (buy_rate_ == 0.0 && sell_rate_ == 0.0) {
        return equity_before;
    }
    double equity = equity_before;
    for (int step = 0; step < 64; ++step) {
        const CostLine line = costs_near(equity);
        const double divisor = 1.0 + line.slope;
        if (!(divisor > 0.0)) {
            return 0.0;
        }
        const double next = (equity_before - line.constant) / divisor;
        if (std::abs(next - equity) <= 1e-15 * std::abs(equity)) {
            return next;
        }
        equity = next;
    }
    return equity;
}

CORVEX_VECTOR_CLONES
RebalanceSolver::CostLine RebalanceSolver::costs_near(double equity) const {
    Lanes constant{};
    Lanes slope{};
    const Lanes buy = Lanes{} + buy_rate_;
    const Lanes sell = Lanes{} - sell_rate_;
    for (std::size_t k = 0; k < size_; k += kLanes) {
        Lanes held;
        Lanes per_equity;
        Lanes offset;
        load(&held_[k], held);
        load(&per_equity_[k], per_equity);
        load(&offset_[k], offset);
        const Lanes gap = offset - held;
        const Lanes rate = per_equity * equity + gap > 0.0 ? buy : sell;
        constant += rate * gap;
        slope += rate * per_equity;
    }
    return {sum(constant), sum(slope)};
}

bool RebalanceSolver::cash_falls_short(double equity) const {
    const double planned = std::min(0.0, 1.0 - (long_weight_ + short_weight_ + stuck_weight_));
    const double cash = equity * (1.0 - long_weight_ - short_weight_) - stuck_value_;
    return long_weight_ > 0.0 && cash < equity * (planned - kCashTolerance);
}

void RebalanceSolver::limit_to_cash(double equity_before) {
    const double planned = std::min(0.0, 1.0 - (long_weight_ + short_weight_ + stuck_weight_));
    const double slope = (1.0 - short_weight_ - planned) / long_weight_;
    const double offset = -stuck_value_ / long_weight_;
    set_long_targets(slope, offset);
    equity_ = newton(equity_before);
    // No cash, or a mere rounding error of it, buys nothing.
    if (slope * equity_ + offset < kRounding * equity_) {
        set_long_targets(0.0, 0.0);
        equity_ = newton(equity_before);
    }
}

} // namespace corvex::engine::inline v1
