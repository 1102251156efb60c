#include "corvex/engine/account/currencies.hpp"

#include <utility>

namespace corvex::engine::inline v1 {

Currencies::Currencies(const CurrencyTerms& terms, const PriceSet& quoted)
    : terms_{terms}, quoted_{quoted} {
    if (!terms.any()) {
        return;
    }
    PriceTables tables{.close = convert(quoted.close())};
    if (quoted.fills_at(FillAt::kClose)) {
        tables.fill_at = FillAt::kClose;
    } else {
        tables.fill_at = quoted.fills_at(FillAt::kOpen) ? FillAt::kOpen : FillAt::kOther;
        tables.fill = convert(quoted.fill());
    }
    converted_ = std::make_unique<PriceSet>(tables);
}

/// A quotient of the rounded product would miss a stop that lies exactly at a quoted price.
double Currencies::find_quoted(std::size_t asset, std::size_t session, double price) const {
    if (price == converted_->fill().at(session, asset)) {
        return quoted_.fill().at(session, asset);
    }
    if (price == converted_->close().at(session, asset)) {
        return quoted_.close().at(session, asset);
    }
    return price / terms_.rate(asset, session);
}

PriceTable Currencies::convert(const PriceTable& quoted) {
    std::vector<double> values{quoted.values.begin(), quoted.values.end()};
    for (std::size_t session = 0; session < quoted.sessions(); ++session) {
        double* row = values.data() + session * quoted.assets;
        for (std::size_t asset = 0; asset < quoted.assets; ++asset) {
            row[asset] *= terms_.rate(asset, session);
        }
    }
    tables_.push_back(std::move(values)); // the values stay where they are when the list grows
    return {tables_.back(), quoted.assets};
}

} // namespace corvex::engine::inline v1
