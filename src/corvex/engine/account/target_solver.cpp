#include "corvex/engine/account/target_solver.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kCashTolerance = 1e-14;
constexpr double kRounding = 1e-12;

} // namespace

// What the lines cost: the arithmetic of OrderCosts::of, to the bit, in loops that take several
// lines at once.

CORVEX_VECTOR_CLONES
void TargetSolver::find_changes(const Columns& lines, const At& at, Orders& orders) {
    const double* shares = lines.shares.data();
    const double* price = lines.price.data();
    const double* weight = lines.weight.data();
    double* change = orders.change.data();
    for (std::size_t k = 0; k < orders.change.size(); ++k) {
        const double base = weight[k] > 0.0 ? at.long_equity : at.equity;
        change[k] = weight[k] * base / price[k] - shares[k];
    }
}

CORVEX_VECTOR_CLONES
void TargetSolver::find_impact(const Columns& lines, Orders& orders) {
    const double* impact = lines.impact.data();
    const double* change = orders.change.data();
    double* moved = orders.moved.data();
    for (std::size_t k = 0; k < orders.moved.size(); ++k) {
        const double ratio = impact[k] * std::sqrt(std::abs(change[k]));
        moved[k] = kMostImpact < ratio ? kMostImpact : ratio;
    }
}

CORVEX_VECTOR_CLONES
void TargetSolver::find_values(const Columns& lines, Orders& orders) {
    const double* price = lines.price.data();
    const double* slippage = lines.slippage.data();
    const double* change = orders.change.data();
    const double* moved = orders.moved.data();
    double* nominal = orders.nominal.data();
    for (std::size_t k = 0; k < orders.nominal.size(); ++k) {
        const double away = slippage[k] + moved[k];
        const double value = std::abs(change[k]) * price[k];
        nominal[k] = value * (change[k] > 0.0 ? 1.0 + away : 1.0 - away);
    }
}

CORVEX_VECTOR_CLONES
void TargetSolver::convert(const Columns& lines, Orders& orders) {
    const double* rate = lines.rate.data();
    double* nominal = orders.nominal.data();
    for (std::size_t k = 0; k < orders.nominal.size(); ++k) {
        nominal[k] /= rate[k];
    }
}

CORVEX_VECTOR_CLONES
void TargetSolver::find_fees(const Columns& lines, std::span<const FeeStep> table, Orders& orders) {
    const double* ratio = lines.fee.data();
    const double* nominal = orders.nominal.data();
    double* fee = orders.fee.data();
    for (std::size_t k = 0; k < orders.fee.size(); ++k) {
        fee[k] = table.empty() ? nominal[k] * ratio[k] : 0.0;
    }
    for (std::size_t step = 0; step < table.size(); ++step) {
        const double from = table[step].from;
        const double to = step + 1 < table.size() ? table[step + 1].from
                                                  : std::numeric_limits<double>::infinity();
        for (std::size_t k = 0; k < orders.fee.size(); ++k) {
            const double end = nominal[k] < to ? nominal[k] : to;
            fee[k] += from < end ? (end - from) * table[step].ratio : 0.0;
        }
    }
}

CORVEX_VECTOR_CLONES
void TargetSolver::find_costs(const Columns& lines, const At& at, double max_ratio,
                              Orders& orders) {
    const double* price = lines.price.data();
    const double* weight = lines.weight.data();
    const double* tax_ratio = lines.tax.data();
    const double* slippage = lines.slippage.data();
    const double* rate = lines.rate.data();
    const double* minimum = lines.minimum.data();
    const double* per_share = lines.per_share.data();
    const double* change = orders.change.data();
    const double* moved = orders.moved.data();
    const double* nominal = orders.nominal.data();
    const double* fee = orders.fee.data();
    double* cost = orders.cost.data();
    for (std::size_t k = 0; k < orders.cost.size(); ++k) {
        const double count = std::abs(change[k]);
        const double value = count * price[k];
        const bool buy = change[k] > 0.0;
        const double away = slippage[k] + moved[k];
        const double executed = value * (buy ? 1.0 + away : 1.0 - away);
        const double least = fee[k] + per_share[k] * count;
        const double most = max_ratio * nominal[k];
        const double raised = least < minimum[k] ? minimum[k] : least;
        const double commission = nominal[k] > 0.0 ? (most < raised ? most : raised) : 0.0;
        const double tax = buy ? 0.0 : tax_ratio[k] * executed;
        // What is held already takes no order, and no minimum fee.
        const double dust = weight[k] != 0.0 ? at.dust : 0.0;
        const double paid = commission * rate[k] + tax + slippage[k] * value + moved[k] * value;
        cost[k] = value > dust ? paid : 0.0;
    }
}

void TargetSolver::Orders::resize(std::size_t lines) {
    for (auto* column : {&change, &nominal, &fee, &cost}) {
        column->resize(lines);
    }
    moved.assign(lines, 0.0);
}

void TargetSolver::Columns::make_room(std::size_t lines) {
    for (auto* column :
         {&shares, &price, &weight, &fee, &minimum, &per_share, &tax, &slippage, &impact, &rate}) {
        column->resize(std::max(column->size(), lines));
    }
}

void TargetSolver::Columns::set(std::size_t place, const Line& line, const Costs& ratios,
                                const Commission& own) {
    shares[place] = line.shares;
    price[place] = line.price;
    weight[place] = line.weight;
    fee[place] = own.ratio;
    minimum[place] = own.minimum;
    per_share[place] = own.per_share;
    tax[place] = ratios.tax;
    slippage[place] = ratios.slippage;
    impact[place] = line.impact;
    rate[place] = line.rate;
}

void TargetSolver::clear(std::size_t most) {
    size_ = 0;
    columns_.make_room(most);
    assets_of_lines_.resize(std::max(assets_of_lines_.size(), most));
    has_impact_ = has_rates_ = false;
    long_weight_ = short_weight_ = fixed_weight_ = fixed_value_ = 0.0;
    has_fixed_ = false;
}

void TargetSolver::add(const Line& line) {
    assets_of_lines_[size_] = line.asset;
    columns_.set(size_++, line, costs_.ratios(line.asset), costs_.commission_of(line.asset));
    has_impact_ |= line.impact > 0.0;
    has_rates_ |= line.rate != 1.0;
    (line.weight > 0.0 ? long_weight_ : short_weight_) += line.weight;
}

void TargetSolver::add_fixed(double value, double weight) {
    fixed_value_ += value;
    fixed_weight_ += weight;
    has_fixed_ = true;
}

double TargetSolver::shares(std::size_t index) const {
    const double weight = columns_.weight[index];
    const double base = weight > 0.0 ? long_slope_ * equity_ + long_offset_ : equity_;
    return weight * base / columns_.price[index];
}

/// What all lines cost, added up one after the other: the last digits are those of single orders.
double TargetSolver::costs_at(double equity) const {
    const At at{equity, long_slope_ * equity + long_offset_, kRounding * equity};
    find_changes(columns_, at, orders_);
    if (has_impact_) {
        find_impact(columns_, orders_);
    }
    find_values(columns_, orders_);
    if (has_rates_) {
        convert(columns_, orders_);
    }
    find_fees(columns_, costs_.fees().table, orders_);
    find_costs(columns_, at, costs_.fees().max_ratio, orders_);
    return std::accumulate(orders_.cost.begin(), orders_.cost.end(), 0.0);
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
    orders_.resize(size_);
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
