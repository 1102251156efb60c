#include "corvex/engine/portfolio/price_set.hpp"

#include "corvex/engine/portfolio/price_checks.hpp"
#include "corvex/engine/portfolio/require.hpp"

#include <algorithm>
#include <string>

namespace corvex::engine::inline v1 {

namespace {

void require_same_shape(const PriceTable& close, const PriceTable& other, const char* name) {
    require(other.empty() ||
                (other.assets == close.assets && other.values.size() == close.values.size()),
            std::string{"the "} + name + " prices must have the shape of the close prices");
}

} // namespace

PriceSet::PriceSet(const PriceTables& tables) : tables_{tables} {
    require(assets() > 0, "the price table has no assets");
    require(fills_at(FillAt::kClose) || !tables.fill.empty() || tables.close.empty(),
            "the fill prices are needed");
    require_same_shape(tables.close, tables.fill, "fill");
    require_same_shape(tables.close, tables.open, "open");
    require_same_shape(tables.close, tables.high, "high");
    require_same_shape(tables.close, tables.low, "low");
    last_priced_ = last_priced_sessions(tables.close);
    for (std::size_t asset = 0; asset < assets(); ++asset) {
        const std::int64_t closing = last_priced_[asset] + 1;
        if (closing > 0 && closing < static_cast<std::int64_t>(sessions())) {
            ends_.emplace_back(closing, static_cast<std::uint32_t>(asset));
        }
    }
    std::ranges::sort(ends_);
}

} // namespace corvex::engine::inline v1
