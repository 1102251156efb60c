#pragma once

#include "corvex/engine/account/terms.hpp"
#include "corvex/engine/portfolio/price_set.hpp"

#include <cstddef>
#include <memory>
#include <vector>

namespace corvex::engine::inline v1 {

/// Prices in the currency of the account, by which money is counted, and the way back to the
/// quoted ones, which stops, limits and trades look at.
class Currencies {
  public:
    /// Both outlive it. Without currencies nothing is copied.
    Currencies(const CurrencyTerms& terms, const PriceSet& quoted);

    [[nodiscard]] bool any() const { return converted_ != nullptr; }
    /// Closes and fill prices in the currency of the account.
    [[nodiscard]] const PriceSet& prices() const { return any() ? *converted_ : quoted_; }
    /// What one unit of an asset's currency costs.
    [[nodiscard]] double rate(std::size_t asset, std::size_t session) const {
        return any() ? terms_.rate(asset, session) : 1.0;
    }
    /// How the rate of an asset has moved from one session to another: 1 is not at all.
    [[nodiscard]] double moved(std::size_t asset, std::size_t from, std::size_t to) const {
        return any() ? terms_.rate(asset, to) / terms_.rate(asset, from) : 1.0;
    }
    /// The price in the asset's currency; of a fill or a close exactly the one in the table.
    [[nodiscard]] double quoted(std::size_t asset, std::size_t session, double price) const {
        return any() ? find_quoted(asset, session, price) : price;
    }

  private:
    [[nodiscard]] double find_quoted(std::size_t asset, std::size_t session, double price) const;
    PriceTable convert(const PriceTable& quoted);

    const CurrencyTerms& terms_;
    const PriceSet& quoted_;
    std::vector<std::vector<double>> tables_;
    std::unique_ptr<PriceSet> converted_;
};

} // namespace corvex::engine::inline v1
