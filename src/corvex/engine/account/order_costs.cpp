#include "corvex/engine/account/order_costs.hpp"

#include <algorithm>
#include <cmath>

namespace corvex::engine::inline v1 {

namespace {

double of_asset(const Grid& grid, std::size_t session, std::size_t asset, double otherwise) {
    const double own = grid.empty() ? otherwise : grid.at(session, asset);
    return std::isnan(own) ? otherwise : own;
}

} // namespace

OrderCosts::OrderCosts(const AccountTerms& terms, const Costs& otherwise, std::size_t assets)
    : terms_{terms}, otherwise_{otherwise},
      by_session_{
          std::max({terms.fee_ratio.rows, terms.tax_ratio.rows, terms.slippage_ratio.rows}) > 1},
      ratios_(assets), commissions_(assets) {
    read(0);
}

void OrderCosts::read(std::size_t session) {
    for (std::size_t asset = 0; asset < ratios_.size(); ++asset) {
        ratios_[asset] = {of_asset(terms_.fee_ratio, session, asset, otherwise_.fee),
                          of_asset(terms_.tax_ratio, session, asset, otherwise_.tax),
                          of_asset(terms_.slippage_ratio, session, asset, otherwise_.slippage)};
        commissions_[asset] = {ratios_[asset].fee,
                               of_asset(terms_.min_fee, 0, asset, terms_.fees.minimum),
                               of_asset(terms_.fee_per_share, 0, asset, terms_.fees.per_share)};
    }
}

} // namespace corvex::engine::inline v1
