#include "corvex/engine/account/order_costs.hpp"

namespace corvex::engine::inline v1 {

namespace {

double of_asset(const Grid& grid, std::size_t asset, double otherwise) {
    return grid.empty() ? otherwise : grid.at(0, asset);
}

} // namespace

OrderCosts::OrderCosts(const AccountTerms& terms, const Costs& otherwise, std::size_t assets)
    : terms_{terms}, ratios_(assets) {
    for (std::size_t asset = 0; asset < assets; ++asset) {
        ratios_[asset] = {of_asset(terms.fee_ratio, asset, otherwise.fee),
                          of_asset(terms.tax_ratio, asset, otherwise.tax),
                          of_asset(terms.slippage_ratio, asset, otherwise.slippage)};
    }
}

} // namespace corvex::engine::inline v1
