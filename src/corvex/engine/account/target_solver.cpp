#include "corvex/engine/account/target_solver.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kCashTolerance = 1e-14;
constexpr double kRounding = 1e-12;

} // namespace

/// What each line costs; the arithmetic of OrderCosts::of, without a branch.
CORVEX_VECTOR_CLONES
void TargetSolver::plain_costs(const Columns& lines, const PlainCosts& terms,
                               std::span<double> out) {
    const double* shares = lines.shares.data();
    const double* price = lines.price.data();
    const double* weight = lines.weight.data();
    const double* fee_ratio = lines.fee.data();
    const double* tax_ratio = lines.tax.data();
    const double* slippage = lines.slippage.data();
    for (std::size_t k = 0; k < out.size(); ++k) {
        const double base = weight[k] > 0.0 ? terms.long_equity : terms.equity;
        const double change = weight[k] * base / price[k] - shares[k];
        const double count = std::abs(change);
        const double value = count * price[k];
        const bool buy = change > 0.0;
        const double executed = value * (buy ? 1.0 + slippage[k] : 1.0 - slippage[k]);
        const double least = executed * fee_ratio[k] + terms.per_share * count;
        const double most = terms.max_ratio * executed;
        const double raised = least < terms.minimum ? terms.minimum : least;
        const double fee = most < raised ? most : raised;
        const double tax = buy ? 0.0 : tax_ratio[k] * executed;
        // What is held already takes no order, and no minimum fee.
        const double dust = weight[k] != 0.0 ? terms.dust : 0.0;
        out[k] = value > dust ? fee + tax + slippage[k] * value : 0.0;
    }
}

void TargetSolver::Columns::clear() {
    for (auto* column : {&shares, &price, &weight, &fee, &tax, &slippage}) {
        column->clear();
    }
}

void TargetSolver::Columns::add(const Line& line, const Costs& ratios) {
    shares.push_back(line.shares);
    price.push_back(line.price);
    weight.push_back(line.weight);
    fee.push_back(ratios.fee);
    tax.push_back(ratios.tax);
    slippage.push_back(ratios.slippage);
}

void TargetSolver::clear() {
    lines_.clear();
    columns_.clear();
    plain_ = costs_.fees().table.empty();
    long_weight_ = short_weight_ = fixed_weight_ = fixed_value_ = 0.0;
    has_fixed_ = false;
}

void TargetSolver::add(const Line& line) {
    lines_.push_back(line);
    columns_.add(line, costs_.ratios(line.asset));
    plain_ &= line.impact == 0.0 && line.rate == 1.0;
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
    if (plain_) {
        return plain_costs_at(equity);
    }
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

/// The same, to the bit, without fee table, impact and rates: many orders at once. They are added
/// up one after the other, or the last digits would differ.
double TargetSolver::plain_costs_at(double equity) const {
    costs_of_lines_.resize(lines_.size());
    const PlainCosts terms{costs_.fees().minimum,
                           costs_.fees().per_share,
                           costs_.fees().max_ratio,
                           equity,
                           long_slope_ * equity + long_offset_,
                           kRounding * equity};
    plain_costs(columns_, terms, costs_of_lines_);
    return std::accumulate(costs_of_lines_.begin(), costs_of_lines_.end(), 0.0);
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
