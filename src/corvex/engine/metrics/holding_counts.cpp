#include "corvex/engine/metrics/holding_counts.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace corvex::engine {

namespace {

using Counts = std::vector<std::int64_t>;

/// 1 for a position, 0 for none, as wide as the weight, so that loops need no branch and no change
/// of width. NaN compares false with everything, so it needs no test of its own.
std::int64_t held(double weight) { return static_cast<std::int64_t>(std::abs(weight) > 0.0); }

Counts counts_by_date(std::span<const double> weights, std::size_t assets) {
    Counts counts(weights.size() / assets);
    for (std::size_t date = 0; date < counts.size(); ++date) {
        for (const double weight : weights.subspan(date * assets, assets)) {
            counts[date] += held(weight);
        }
    }
    return counts;
}

Counts counts_by_asset(std::span<const double> weights, std::size_t assets) {
    Counts counts(weights.size() / assets);
    for (std::size_t asset = 0; asset < assets; ++asset) {
        const std::span<const double> column =
            weights.subspan(asset * counts.size(), counts.size());
        for (std::size_t date = 0; date < counts.size(); ++date) {
            counts[date] += held(column[date]);
        }
    }
    return counts;
}

} // namespace

HoldingCounts holding_counts(std::span<const double> weights, std::size_t assets, Layout layout) {
    if (assets == 0 || weights.empty()) {
        return {};
    }
    if (weights.size() % assets != 0) {
        throw std::invalid_argument("weights must fill whole rows of assets");
    }
    const Counts counts = layout == Layout::kDates ? counts_by_date(weights, assets)
                                                   : counts_by_asset(weights, assets);
    const auto total = std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
    return {static_cast<double>(total) / static_cast<double>(counts.size()),
            static_cast<std::size_t>(*std::max_element(counts.begin(), counts.end()))};
}

} // namespace corvex::engine
