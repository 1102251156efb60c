#include "corvex/engine/series/curve.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace corvex::engine::inline v1 {

PresentCurve::PresentCurve(std::span<const double> values, std::span<const Nanos> times)
    : values_(values), times_(times) {
    if (values.size() != times.size()) {
        throw std::invalid_argument("a curve needs as many times as values");
    }
    // v - v is 0 for a finite value and NaN otherwise: one cheap pass tells that nothing is amiss.
    const auto finite = [](double v) { return v - v == 0.0; };
    if (std::all_of(values.begin(), values.end(), finite)) {
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

std::ptrdiff_t first_unordered(std::span<const Nanos> times) {
    const auto found = std::adjacent_find(
        times.begin(), times.end(), [](Nanos earlier, Nanos later) { return later <= earlier; });
    return found == times.end() ? -1 : found - times.begin() + 1;
}

} // namespace corvex::engine::inline v1
