#pragma once

#include "corvex/engine/account/terms.hpp"
#include "corvex/engine/portfolio/costs.hpp"

#include <cstddef>

namespace corvex::engine::inline v1 {

/// What one order costs, in money.
struct OrderCost {
    double fee = 0.0;
    double tax = 0.0;
    double slippage = 0.0;
    double impact = 0.0;

    [[nodiscard]] double total() const { return fee + tax + slippage + impact; }
};

/// Works out what orders cost: ratios of each asset, the commission's other terms, and impact.
class OrderCosts {
  public:
    OrderCosts(const AccountTerms& terms, const Costs& otherwise);

    /// @param shares  bought, or negative: sold.
    /// @param impact  the ratio at which an order of one share moves the price; it grows with the
    ///                root of the shares.
    /// @param rate    of the asset's currency, in which its broker counts a commission.
    [[nodiscard]] OrderCost of(std::size_t asset, double shares, double price, double impact,
                               double rate) const;
    /// The ratios of an asset, without what only an order has.
    [[nodiscard]] Costs ratios(std::size_t asset) const;

  private:
    const AccountTerms& terms_;
    Costs otherwise_;
};

} // namespace corvex::engine::inline v1
