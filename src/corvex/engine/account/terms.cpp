#include "corvex/engine/account/terms.hpp"

#include "corvex/engine/portfolio/require.hpp"

#include <algorithm>
#include <cmath>

namespace corvex::engine::inline v1 {

namespace {

void validate_events(const AccountTerms& terms, std::size_t sessions, std::size_t assets) {
    const auto inside = [&](std::int64_t session) {
        return session >= 0 && session < static_cast<std::int64_t>(sessions);
    };
    for (const auto* events : {&terms.dividends, &terms.splits}) {
        require(std::ranges::is_sorted(*events, {}, &AssetEvent::session),
                "the events of an account must be ascending");
        require(std::ranges::all_of(
                    *events, [&](const auto& e) { return inside(e.session) && e.asset < assets; }),
                "an event of the account lies outside the price table");
    }
    require(
        std::ranges::all_of(
            terms.splits, [](const auto& e) { return e.amount > 0.0 && std::isfinite(e.amount); }),
        "a split must be a number above zero");
    require(std::ranges::is_sorted(terms.flows, {}, &CashEvent::session) &&
                std::ranges::all_of(terms.flows, [&](const auto& e) { return inside(e.session); }),
            "the flows of an account must be ascending and inside the price table");
}

void validate_currencies(const CurrencyTerms& terms, std::size_t sessions, std::size_t assets) {
    if (!terms.any()) {
        return;
    }
    const auto count = static_cast<std::int64_t>(terms.rates.columns);
    require(terms.rates.rows == sessions && terms.of_asset.size() == assets,
            "the rates of the currencies do not fit the prices");
    require(std::ranges::all_of(terms.of_asset,
                                [&](auto column) { return column >= 0 && column < count; }),
            "an asset is quoted in a currency without rates");
    require(std::ranges::none_of(terms.rates.values,
                                 [](double rate) { return rate <= 0.0 || std::isinf(rate); }),
            "the rates of the currencies must be above zero and finite, or missing");
}

} // namespace

void validate(const AccountTerms& terms, std::size_t sessions, std::size_t assets) {
    require(terms.capital > 0.0 && std::isfinite(terms.capital), "the capital must be above zero");
    require(terms.years.size() == sessions, "years must have one entry for each session");
    for (const Grid* by_session : {&terms.cash_rate, &terms.financing_rate}) {
        require(by_session->fits(sessions, 1), "a rate of the account does not fit the sessions");
    }
    for (const Grid* grid :
         {&terms.borrow_rate, &terms.short_rebate, &terms.withholding_tax, &terms.fee_ratio,
          &terms.tax_ratio, &terms.slippage_ratio, &terms.lot_size, &terms.band.width,
          &terms.volume.volume, &terms.price_limit, &terms.opens}) {
        require(grid->fits(sessions, assets), "a table of the account does not fit the prices");
    }
    for (const Grid* grid : {&terms.min_fee, &terms.fee_per_share}) {
        require(grid->fits(1, assets), "a fee of the account does not fit the assets");
        require(std::ranges::all_of(grid->values, [](double fee) { return fee >= 0.0; }),
                "the fees of an account must not be below zero");
    }
    require(terms.impact.window >= 2, "the window of the impact must be two sessions or more");
    require((terms.volume.share == 0.0 && terms.impact.coefficient == 0.0) ||
                (terms.volume.volume.rows == sessions && terms.volume.volume.columns == assets),
            "the volumes are needed");
    validate_events(terms, sessions, assets);
    validate_currencies(terms.currencies, sessions, assets);
}

} // namespace corvex::engine::inline v1
