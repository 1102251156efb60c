#include "corvex/engine/confidence/intervals.hpp"

#include "corvex/engine/confidence/normal.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<double> finite_of(std::span<const double> values) {
    std::vector<double> kept(values.begin(), values.end());
    std::erase_if(kept, [](double value) { return !std::isfinite(value); });
    return kept;
}

/// Skewness of the leave-one-out figures over 6, the rate at which the spread changes.
double acceleration(std::span<const double> jackknife) {
    const std::vector<double> kept = finite_of(jackknife);
    double mean = 0.0;
    for (const double value : kept) {
        mean += value / static_cast<double>(kept.size());
    }
    double squares = 0.0;
    double cubes = 0.0;
    for (const double value : kept) {
        const double distance = mean - value;
        squares += distance * distance;
        cubes += distance * distance * distance;
    }
    return squares > 0.0 ? cubes / (6.0 * std::pow(squares, 1.5)) : 0.0;
}

/// The share of the draws at which a corrected bound stands.
double corrected(double bias, double accelerated, double probability) {
    const double shifted = bias + normal_quantile(probability);
    return normal_cdf(bias + shifted / (1.0 - accelerated * shifted));
}

} // namespace

double sorted_quantile(std::span<const double> sorted, double share) {
    const double position = share * static_cast<double>(sorted.size() - 1);
    const auto rank = std::min(static_cast<std::size_t>(position), sorted.size() - 1);
    const std::size_t above = std::min(rank + 1, sorted.size() - 1);
    return sorted[rank] + (sorted[above] - sorted[rank]) * (position - static_cast<double>(rank));
}

Interval bootstrap_interval(std::span<const double> draws, double observed, double level,
                            IntervalMethod method, std::span<const double> jackknife) {
    if (!(level > 0.0 && level < 1.0)) {
        throw std::invalid_argument("the level of an interval must lie between 0 and 1");
    }
    if (method == IntervalMethod::kBca && jackknife.empty()) {
        throw std::invalid_argument("a corrected interval needs the figure without each return");
    }
    std::vector<double> sorted = finite_of(draws);
    if (sorted.empty() || std::isnan(observed)) {
        return {kNaN, kNaN};
    }
    std::sort(sorted.begin(), sorted.end());
    double low = (1.0 - level) / 2.0;
    double high = 1.0 - low;
    if (method == IntervalMethod::kBca) {
        const auto below = std::lower_bound(sorted.begin(), sorted.end(), observed);
        const double share =
            static_cast<double>(below - sorted.begin()) / static_cast<double>(sorted.size());
        if (share == 0.0 || share == 1.0) {
            return {kNaN, kNaN};
        }
        const double bias = normal_quantile(share);
        const double accelerated = acceleration(jackknife);
        low = corrected(bias, accelerated, low);
        high = corrected(bias, accelerated, high);
    }
    const Interval found{sorted_quantile(sorted, low), sorted_quantile(sorted, high)};
    if (method == IntervalMethod::kBasic) {
        return {2.0 * observed - found.high, 2.0 * observed - found.low};
    }
    return found;
}

} // namespace corvex::engine::inline v1
