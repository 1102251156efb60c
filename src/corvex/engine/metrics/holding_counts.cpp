#include "corvex/engine/metrics/holding_counts.hpp"

#include <algorithm>
#include <stdexcept>

namespace corvex::engine {

HoldingCounts holding_counts(std::span<const double> weights, std::size_t assets) {
    if (assets == 0 || weights.empty()) {
        return {};
    }
    if (weights.size() % assets != 0) {
        throw std::invalid_argument("weights must fill whole rows of assets");
    }
    HoldingCounts counts;
    std::size_t total = 0;
    for (std::size_t row = 0; row < weights.size(); row += assets) {
        std::size_t held = 0;
        for (const double weight : weights.subspan(row, assets)) {
            // NaN compares false with everything, so this leaves it out without a test of its own.
            // A sum instead of "or" spares the branch.
            held += static_cast<std::size_t>(weight > 0.0) + static_cast<std::size_t>(weight < 0.0);
        }
        total += held;
        counts.largest = std::max(counts.largest, held);
    }
    counts.mean = static_cast<double>(total) / static_cast<double>(weights.size() / assets);
    return counts;
}

} // namespace corvex::engine
