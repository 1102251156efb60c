#pragma once

#include "corvex/engine/account/fee_schedule.hpp"
#include "corvex/engine/account/terms.hpp"
#include "corvex/engine/portfolio/costs.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace corvex::engine::inline v1 {

/// What one order costs, in money.
struct OrderCost {
    double fee = 0.0;
    double tax = 0.0;
    double slippage = 0.0;
    double impact = 0.0;

    [[nodiscard]] double total() const { return fee + tax + slippage + impact; }
};

/// No order moves a price by more: a sale must leave something.
inline constexpr double kMostImpact = 0.5;

/// Works out what orders cost: ratios of each asset, the commission's other terms, and impact.
class OrderCosts {
  public:
    OrderCosts(const AccountTerms& terms, const Costs& otherwise, std::size_t assets);

    /// Takes the ratios of a session.
    void begin(std::size_t session) {
        if (by_session_) {
            read(session);
        }
    }

    /// @param shares  bought, or negative: sold.
    /// @param impact  the ratio at which an order of one share moves the price; it grows with the
    ///                root of the shares.
    /// @param rate    of the asset's currency, in which its broker counts a commission.
    [[nodiscard]] OrderCost of(std::size_t asset, double shares, double price, double impact,
                               double rate) const {
        const Costs& costs = ratios_[asset];
        const double count = std::abs(shares);
        const double value = count * price;
        if (!(value > 0.0)) {
            return {};
        }
        const double moved = impact > 0.0 ? std::min(impact * std::sqrt(count), kMostImpact) : 0.0;
        const bool buy = shares > 0.0;
        const double away = costs.slippage + moved;
        const double executed = value * (buy ? 1.0 + away : 1.0 - away);
        return {commission(terms_.fees, executed / rate, count, commissions_[asset]) * rate,
                buy ? 0.0 : costs.tax * executed, costs.slippage * value, moved * value};
    }
    [[nodiscard]] const FeeTerms& fees() const { return terms_.fees; }
    /// The ratios of an asset, without what only an order has.
    [[nodiscard]] const Costs& ratios(std::size_t asset) const { return ratios_[asset]; }
    [[nodiscard]] const Commission& commission_of(std::size_t asset) const {
        return commissions_[asset];
    }

  private:
    void read(std::size_t session);

    const AccountTerms& terms_;
    Costs otherwise_;
    bool by_session_;                     ///< some ratios change
    std::vector<Costs> ratios_;           ///< of each asset: orders ask for them many times
    std::vector<Commission> commissions_; ///< the same
};

} // namespace corvex::engine::inline v1
