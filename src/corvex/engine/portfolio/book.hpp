#pragma once

#include "corvex/engine/account/currencies.hpp"
#include "corvex/engine/portfolio/costs.hpp"
#include "corvex/engine/portfolio/price_table.hpp"
#include "corvex/engine/portfolio/require.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// Cash and holdings, and what they are worth when prices are missing.
class Book {
  public:
    /// @param currencies  whose rates also move what is known of a price; nullptr = there are none.
    Book(const PriceTable& close, const Costs& costs, double cash = 1.0,
         const Currencies* currencies = nullptr);

    /// Value of all holdings at a session's close; a missing price counts at the last known value.
    double mark(std::size_t session);

    /// Cash and value of the holdings at each close from `session` on, as mark() has them.
    void equities(std::size_t session, std::span<double> out);

    /// The last known price of an asset before a session's close is known.
    [[nodiscard]] double price_before(std::size_t asset, std::size_t session) const;
    /// The price that a close of this session leaves an asset at.
    [[nodiscard]] double price_after(std::size_t asset, std::size_t session) const {
        const double price = close_.at(session, asset);
        return is_missing(price) ? price_before(asset, session) : price;
    }

    /// Sets a holding that was traded at a quoted price. Cash and costs are the caller's: a
    /// rebalance knows both exactly.
    void set_shares(std::size_t asset, double shares, double price, std::size_t session) {
        require_countable(shares);
        shares_[asset] = shares;
        if (is_missing(close_.at(session, asset))) {
            known_[asset] = price;
            known_session_[asset] = static_cast<std::int64_t>(session);
        }
    }
    /// Sets all holdings in a session that has a close for each of them.
    /// @param same_assets  whether none begins or ends.
    void set_row(std::span<const double> shares, bool same_assets);
    /// Many holdings have been set: held() and mark() follow.
    void holdings_changed() { changed_ = true; }
    /// Trades one asset to a holding of `value`; pays for it and for the costs.
    void trade(std::size_t asset, double value, double price, std::size_t session,
               CostTotals& totals);
    /// Takes a trade of this session back: shares, cash and costs are as before it.
    void untrade(std::size_t asset, double shares_before, double price, CostTotals& totals);
    void set_cash(double cash) { cash_ = cash; }
    /// Each share becomes `ratio` shares when a session begins.
    void split(std::size_t asset, std::size_t session, double ratio);
    /// Sets a debt that is a mere rounding error of the equity to zero.
    void forgive_rounding(double equity);
    [[nodiscard]] double cash() const { return cash_; }
    [[nodiscard]] double shares(std::size_t asset) const { return shares_[asset]; }
    [[nodiscard]] const std::vector<double>& shares() const { return shares_; }
    /// The held assets, ascending.
    const std::vector<std::uint32_t>& held();
    /// The same without a look at each asset where nothing changed; some may have been sold.
    const std::vector<std::uint32_t>& marked() {
        if (changed_) {
            refresh_held();
        }
        return held_;
    }

  private:
    void dots(const double* row, std::span<double> out) const;
    [[nodiscard]] double at_rate_of(std::size_t asset, std::int64_t noted, std::size_t session,
                                    double price) const;
    double mark_with_gaps(std::size_t session);
    void refresh_held();
    void drop(std::size_t asset);

    const PriceTable& close_;
    const Costs& costs_;
    const Currencies* currencies_;
    double cash_;
    std::vector<double> shares_;
    /// The value that counts while prices are missing, and the session that it was noted in. A
    /// close is only noted when the next one is missing, so the usual session writes nothing.
    std::vector<double> known_;
    std::vector<std::int64_t> known_session_;
    /// The held assets, ascending, and their shares side by side. A sold asset stays with zero
    /// shares until enough of them are gone.
    std::vector<std::uint32_t> held_;
    std::vector<double> held_shares_; ///< not kept up while every asset is held
    std::size_t gone_ = 0;            ///< assets in held_ with zero shares
    bool changed_ = false;            ///< holdings differ from held_ and held_shares_
};

} // namespace corvex::engine::inline v1
