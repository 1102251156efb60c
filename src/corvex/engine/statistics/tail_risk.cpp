#include "corvex/engine/statistics/tail_risk.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

using Offset = std::vector<double>::difference_type;

/// Puts the value that would stand at `rank` if all were sorted there, smaller ones before it.
template <typename Order>
void select(std::vector<double>& values, std::size_t rank, Order order) {
    std::nth_element(values.begin(), values.begin() + static_cast<Offset>(rank), values.end(),
                     order);
}

/// The quantile whose lower neighbour `select` has put at its rank, in the same order.
template <typename Order>
double interpolated(const std::vector<double>& values, double position, Order order) {
    const auto rank = static_cast<std::size_t>(position);
    const double low = values[rank];
    if (rank + 1 == values.size()) {
        return low;
    }
    const auto above = values.begin() + static_cast<Offset>(rank) + 1;
    const double next = *std::min_element(above, values.end(), order);
    return low + (next - low) * (position - static_cast<double>(rank));
}

} // namespace

TailRisk tail_risk(std::span<const double> returns, double share) {
    if (!(share > 0.0 && share < 0.5)) {
        throw std::invalid_argument("the share of a tail must be above 0 and below 0.5");
    }
    std::vector<double> kept(returns.begin(), returns.end());
    std::erase_if(kept, [](double value) { return !std::isfinite(value); });
    if (kept.empty()) {
        return {};
    }
    const double position = share * static_cast<double>(kept.size() - 1);
    const auto rank = static_cast<std::size_t>(position);
    TailRisk found;
    select(kept, rank, std::less<>());
    found.value_at_risk = interpolated(kept, position, std::less<>());
    const auto end_of_tail = kept.begin() + static_cast<Offset>(rank) + 1;
    found.expected_shortfall =
        std::accumulate(kept.begin(), end_of_tail, 0.0) / static_cast<double>(rank + 1);
    // The upper quantile lies as far from the largest return as the lower from the smallest.
    select(kept, rank, std::greater<>());
    const double upper = interpolated(kept, position, std::greater<>());
    if (found.value_at_risk != 0.0) {
        found.tail_ratio = std::abs(upper) / std::abs(found.value_at_risk);
    }
    return found;
}

} // namespace corvex::engine::inline v1
