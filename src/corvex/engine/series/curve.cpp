#include "corvex/engine/series/curve.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace corvex::engine::inline v1 {

PresentCurve::PresentCurve(std::span<const double> values, std::span<const Nanos> times)
    : values_(values), times_(times) {
    if (values.size() != times.size()) {
        throw std::invalid_argument("a curve needs as many times as values");
    }
    if (all_finite(values)) {
        return;
    }
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (std::isinf(values[i])) {
            throw std::invalid_argument("a curve must not hold an infinite value");
        }
        if (!std::isnan(values[i])) {
            kept_values_.push_back(values[i]);
            kept_times_.push_back(times[i]);
            rows_.push_back(i);
        }
    }
    values_ = kept_values_;
    times_ = kept_times_;
}

CORVEX_VECTOR_CLONES
bool all_finite(std::span<const double> values) {
    // Every value times zero is zero, unless it is missing or infinite.
    Lanes one_sum{};
    Lanes other_sum{};
    std::size_t i = 0;
    for (; i + 2 * kLanes <= values.size(); i += 2 * kLanes) {
        Lanes one;
        Lanes other;
        load(values.data() + i, one);
        load(values.data() + i + kLanes, other);
        one_sum += one * 0.0;
        other_sum += other * 0.0;
    }
    double total = sum(one_sum + other_sum);
    for (; i < values.size(); ++i) {
        total += values[i] * 0.0;
    }
    return total == 0.0;
}

std::ptrdiff_t first_unordered(std::span<const Nanos> times) {
    const auto found = std::adjacent_find(
        times.begin(), times.end(), [](Nanos earlier, Nanos later) { return later <= earlier; });
    return found == times.end() ? -1 : found - times.begin() + 1;
}

} // namespace corvex::engine::inline v1
