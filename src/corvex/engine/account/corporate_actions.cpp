#include "corvex/engine/account/corporate_actions.hpp"

#include <utility>

namespace corvex::engine::inline v1 {

SplitPrices::SplitPrices(const PriceSet& quoted, std::span<const AssetEvent> splits)
    : quoted_{quoted} {
    if (splits.empty()) {
        return;
    }
    steps_.resize(quoted.assets());
    for (const AssetEvent& split : splits) {
        auto& steps = steps_[split.asset];
        steps.push_back(
            {split.session, (steps.empty() ? 1.0 : steps.back().factor) * split.amount});
    }
    PriceTables tables{.close = adjust(quoted.close())};
    // Only levels are looked at here, so whether orders fill at the close makes no difference.
    tables.open = adjust(quoted.open());
    tables.high = adjust(quoted.high());
    tables.low = adjust(quoted.low());
    adjusted_ = std::make_unique<PriceSet>(tables);
}

double SplitPrices::factor_of(std::size_t asset, std::size_t session) const {
    double factor = 1.0;
    for (const Step& step : steps_[asset]) {
        if (step.session > static_cast<std::int64_t>(session)) {
            break;
        }
        factor = step.factor;
    }
    return factor;
}

PriceTable SplitPrices::adjust(const PriceTable& quoted) {
    if (quoted.empty()) {
        return {};
    }
    std::vector<double> values{quoted.values.begin(), quoted.values.end()};
    for (std::size_t asset = 0; asset < quoted.assets; ++asset) {
        const auto& steps = steps_[asset];
        for (std::size_t k = 0; k < steps.size(); ++k) {
            const auto begin = static_cast<std::size_t>(steps[k].session);
            const std::size_t end = k + 1 < steps.size()
                                        ? static_cast<std::size_t>(steps[k + 1].session)
                                        : quoted.sessions();
            for (std::size_t session = begin; session < end; ++session) {
                values[session * quoted.assets + asset] *= steps[k].factor;
            }
        }
    }
    tables_.push_back(std::move(values)); // the values stay where they are when the list grows
    return {tables_.back(), quoted.assets};
}

} // namespace corvex::engine::inline v1
