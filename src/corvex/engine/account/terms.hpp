#pragma once

#include "corvex/engine/account/grid.hpp"
#include "corvex/engine/account/price_ticks.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// What happens at the beginning of a session, ascending by session.
struct AssetEvent {
    std::int64_t session;
    std::uint32_t asset;
    double amount;
};
struct CashEvent {
    std::int64_t session;
    double amount;
};

/// A ratio that holds for the part of an order's value from `from` on.
struct FeeStep {
    double from;
    double ratio;
};

/// What an order pays beside the ratios.
struct FeeTerms {
    double minimum = 0.0;                                       ///< of each order, in money
    double per_share = 0.0;                                     ///< in money
    double max_ratio = std::numeric_limits<double>::infinity(); ///< of the value, above the minimum
    std::vector<FeeStep> table; ///< in place of the ratio; empty = none
};

/// No trade while a weight is near its target.
struct BandTerms {
    Grid width; ///< empty = off
    bool relative = false;
    bool to_edge = false; ///< trades go to the band's edge instead of the target
};

/// Whether a volume is one: what is below zero or infinite counts as missing.
inline bool is_volume(double shares) {
    return shares >= 0.0 && shares < std::numeric_limits<double>::infinity();
}

/// How much of a session's volume an order may take.
struct VolumeTerms {
    Grid volume;        ///< shares, missing = unknown; of every session and asset
    double share = 0.0; ///< 0 = no limit
    bool lapse = false; ///< what does not fill is forgotten
};

/// Square-root impact.
struct ImpactTerms {
    double coefficient = 0.0; ///< 0 = off
    std::size_t window = 20;  ///< sessions before the fill
};

/// The currencies that assets are quoted in.
struct CurrencyTerms {
    Grid rates; ///< by session and currency: what one unit costs in the account's own; empty = one
                ///< currency, missing = no price of such an asset can be told
    std::span<const std::int64_t> of_asset; ///< the column of its currency

    [[nodiscard]] bool any() const { return !rates.empty(); }
    [[nodiscard]] double rate(std::size_t asset, std::size_t session) const {
        return rates.at(session, static_cast<std::size_t>(of_asset[asset]));
    }
};

/// The account as a broker keeps it, in money. Rates are per year.
struct AccountTerms {
    double capital = 1.0;
    std::span<const double> years; ///< from the close before to each session's
    Grid cash_rate{};              ///< by session: on free cash, the spread taken off
    Grid financing_rate{};         ///< by session: on free cash below zero
    Grid short_rebate{};           ///< on the value of a short
    Grid borrow_rate{};            ///< on the value of a short; missing = cannot be borrowed
    Grid fee_ratio{};              ///< of these three what is missing = that of the options
    Grid tax_ratio{};
    Grid slippage_ratio{};
    FeeTerms fees{};
    Grid min_fee{};       ///< by asset, in its currency; empty = that of `fees`
    Grid fee_per_share{}; ///< the same
    Grid lot_size{};      ///< by asset; 0 = any quantity
    bool round_to_nearest = false;
    std::vector<AssetEvent> dividends{}; ///< money for each share, once the split has been done
    std::vector<AssetEvent> splits{};    ///< new shares for each old one
    Grid withholding_tax{};              ///< the part of a dividend that longs do not get
    BandTerms band{};
    VolumeTerms volume{};
    ImpactTerms impact{};
    Grid price_limit{};                   ///< a fraction of the day before's close; missing = none
    std::vector<PriceTick> price_ticks{}; ///< ascending: limits are moved inwards to them
    Grid opens{};                         ///< what the limits look at; empty = the fill prices
    double maintenance_margin = 0.0;      ///< equity over gross value, 0 = none
    std::vector<CashEvent> flows{};
    CurrencyTerms currencies{};
};

/// @throws std::invalid_argument for shapes that do not fit, or values that can mean nothing.
void validate(const AccountTerms& terms, std::size_t sessions, std::size_t assets);

} // namespace corvex::engine::inline v1
