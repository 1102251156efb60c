#include "corvex/engine/statistics/moments.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// Independent partial sums: the additions overlap, and their rounding errors stay small.
using PartialSums = std::array<double, kLanes>;

double total(const PartialSums& sums) { return std::accumulate(sums.begin(), sums.end(), 0.0); }

/// Calls `add(lane, value)` for each value, the lanes in turn.
template <typename Add>
void for_each_lane(std::span<const double> values, const Add& add) {
    std::size_t i = 0;
    for (; i + kLanes <= values.size(); i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            add(lane, values[i + lane]);
        }
    }
    for (; i < values.size(); ++i) {
        add(0, values[i]);
    }
}

struct FirstPass {
    double sum;
    double best;
    double worst;
};

FirstPass sum_and_extremes(std::span<const double> values) {
    PartialSums sum{};
    PartialSums best;
    PartialSums worst;
    best.fill(-std::numeric_limits<double>::infinity());
    worst.fill(std::numeric_limits<double>::infinity());
    const auto add = [&](std::size_t lane, double value) {
        sum[lane] += value;
        best[lane] = value > best[lane] ? value : best[lane];
        worst[lane] = value < worst[lane] ? value : worst[lane];
    };
    for_each_lane(values, add);
    return {total(sum), *std::max_element(best.begin(), best.end()),
            *std::min_element(worst.begin(), worst.end())};
}

/// Sums of powers of the distances to the mean, and of the squared losses below the target.
struct SecondPass {
    double squares;
    double cubes;
    double fourths;
    double losses;
};

SecondPass sum_powers(std::span<const double> values, double mean, double target) {
    PartialSums squares{};
    PartialSums cubes{};
    PartialSums fourths{};
    PartialSums losses{};
    const auto add = [&](std::size_t lane, double value) {
        const double distance = value - mean;
        const double square = distance * distance;
        const double excess = value - target;
        const double loss = excess < 0.0 ? excess : 0.0;
        squares[lane] += square;
        cubes[lane] += square * distance;
        fourths[lane] += square * square;
        losses[lane] += loss * loss;
    };
    for_each_lane(values, add);
    return {total(squares), total(cubes), total(fourths), total(losses)};
}

double skewness(double n, double squares, double cubes) {
    return n * std::sqrt(n - 1.0) / (n - 2.0) * cubes / std::pow(squares, 1.5);
}

double excess_kurtosis(double n, double squares, double fourths) {
    const double scale = (n - 2.0) * (n - 3.0);
    return (n + 1.0) * n * (n - 1.0) * fourths / (scale * squares * squares) -
           3.0 * (n - 1.0) * (n - 1.0) / scale;
}

Moments moments_of_present(std::span<const double> values, double target) {
    Moments result{values.size(), kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN};
    if (values.empty()) {
        return result;
    }
    const double n = static_cast<double>(values.size());
    const FirstPass first = sum_and_extremes(values);
    result.mean = first.sum / n;
    result.best = first.best;
    result.worst = first.worst;
    const SecondPass sums = sum_powers(values, result.mean, target);
    // A return is a quotient of two rounded prices: a few units in the last place of 1 + return.
    const double noise =
        4.0 * std::numeric_limits<double>::epsilon() * (1.0 + std::abs(result.mean));
    const auto beyond_noise = [&](double size) { return std::abs(size) <= noise ? 0.0 : size; };
    result.excess = beyond_noise(result.mean - target);
    result.downside_deviation = beyond_noise(std::sqrt(sums.losses / n));
    if (values.size() < 2) {
        return result;
    }
    const double squares = sums.squares;
    result.deviation = beyond_noise(std::sqrt(squares / (n - 1.0)));
    if (values.size() > 2 && result.deviation > 0.0) {
        result.skew = skewness(n, squares, sums.cubes);
    }
    if (values.size() > 3 && result.deviation > 0.0) {
        result.kurt = excess_kurtosis(n, squares, sums.fourths);
    }
    return result;
}

} // namespace

Moments moments(std::span<const double> returns, double target) {
    const auto missing = [](double value) { return std::isnan(value); };
    if (std::none_of(returns.begin(), returns.end(), missing)) {
        return moments_of_present(returns, target);
    }
    std::vector<double> present(returns.begin(), returns.end());
    std::erase_if(present, missing);
    return moments_of_present(present, target);
}

} // namespace corvex::engine::inline v1
