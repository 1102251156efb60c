#include "corvex/engine/account/order_costs.hpp"

#include "corvex/engine/account/fee_schedule.hpp"

#include <algorithm>
#include <cmath>

namespace corvex::engine::inline v1 {

namespace {

/// No order moves a price by more: a sale must leave something.
constexpr double kMostImpact = 0.5;

double of_asset(const Grid& grid, std::size_t asset, double otherwise) {
    return grid.empty() ? otherwise : grid.at(0, asset);
}

} // namespace

OrderCosts::OrderCosts(const AccountTerms& terms, const Costs& otherwise)
    : terms_{terms}, otherwise_{otherwise} {}

Costs OrderCosts::ratios(std::size_t asset) const {
    return {of_asset(terms_.fee_ratio, asset, otherwise_.fee),
            of_asset(terms_.tax_ratio, asset, otherwise_.tax),
            of_asset(terms_.slippage_ratio, asset, otherwise_.slippage)};
}

OrderCost OrderCosts::of(std::size_t asset, double shares, double price, double impact,
                         double rate) const {
    const Costs costs = ratios(asset);
    const double count = std::abs(shares);
    const double value = count * price;
    if (!(value > 0.0)) {
        return {};
    }
    const double moved = impact > 0.0 ? std::min(impact * std::sqrt(count), kMostImpact) : 0.0;
    const bool buy = shares > 0.0;
    const double away = costs.slippage + moved;
    const double executed = value * (buy ? 1.0 + away : 1.0 - away);
    return {commission(terms_.fees, executed / rate, count, costs.fee) * rate,
            buy ? 0.0 : costs.tax * executed, costs.slippage * value, moved * value};
}

} // namespace corvex::engine::inline v1
