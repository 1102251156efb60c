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

/// Independent partial sums, one a lane: their additions overlap, and their rounding errors stay
/// small. Values beyond the last whole lanes go to the first.
using Parts = std::array<double, kLanes>;

Parts parts_of(const Lanes& lanes) {
    Parts parts;
    store(lanes, parts.data());
    return parts;
}

double total(const Parts& parts) { return std::accumulate(parts.begin(), parts.end(), 0.0); }

struct FirstPass {
    double sum;
    double best;
    double worst;
};

CORVEX_VECTOR_CLONES
FirstPass sum_and_extremes(std::span<const double> values) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    Lanes sums{};
    Lanes highest = Lanes{} - kInfinity;
    Lanes lowest = Lanes{} + kInfinity;
    std::size_t i = 0;
    for (; i + kLanes <= values.size(); i += kLanes) {
        Lanes value;
        load(values.data() + i, value);
        sums += value;
        highest = value > highest ? value : highest;
        lowest = value < lowest ? value : lowest;
    }
    for (; i < values.size(); ++i) {
        const double value = values[i];
        sums[0] += value;
        highest[0] = value > highest[0] ? value : highest[0];
        lowest[0] = value < lowest[0] ? value : lowest[0];
    }
    return {total(parts_of(sums)), std::ranges::max(parts_of(highest)),
            std::ranges::min(parts_of(lowest))};
}

/// Sums of powers of the distances to the mean, and of the squared losses below the target.
struct SecondPass {
    double squares;
    double cubes;
    double fourths;
    double losses;
};

/// The same sums of single values (double) or of several beside each other (Lanes).
template <typename Number>
struct Powers {
    Number squares{};
    Number cubes{};
    Number fourths{};
    Number losses{};

    [[gnu::always_inline]] void add(const Number& value, double mean, double target) {
        const Number distance = value - mean;
        const Number square = distance * distance;
        const Number excess = value - target;
        const Number loss = excess < 0.0 ? excess : Number{};
        squares += square;
        cubes += square * distance;
        fourths += square * square;
        losses += loss * loss;
    }
};

CORVEX_VECTOR_CLONES
SecondPass sum_powers(std::span<const double> values, double mean, double target) {
    Powers<Lanes> sums;
    std::size_t i = 0;
    for (; i + kLanes <= values.size(); i += kLanes) {
        Lanes value;
        load(values.data() + i, value);
        sums.add(value, mean, target);
    }
    Powers<double> first{sums.squares[0], sums.cubes[0], sums.fourths[0], sums.losses[0]};
    for (; i < values.size(); ++i) {
        first.add(values[i], mean, target);
    }
    sums.squares[0] = first.squares;
    sums.cubes[0] = first.cubes;
    sums.fourths[0] = first.fourths;
    sums.losses[0] = first.losses;
    return {total(parts_of(sums.squares)), total(parts_of(sums.cubes)),
            total(parts_of(sums.fourths)), total(parts_of(sums.losses))};
}

double skewness(double n, double squares, double cubes) {
    return n * std::sqrt(n - 1.0) / (n - 2.0) * cubes / std::pow(squares, 1.5);
}

double excess_kurtosis(double n, double squares, double fourths) {
    const double scale = (n - 2.0) * (n - 3.0);
    return (n + 1.0) * n * (n - 1.0) * fourths / (scale * squares * squares) -
           3.0 * (n - 1.0) * (n - 1.0) / scale;
}

/// @param first  of the same values
Moments moments_of_present(std::span<const double> values, const FirstPass& first, double target) {
    Moments result{values.size(), kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN};
    if (values.empty()) {
        return result;
    }
    const double n = static_cast<double>(values.size());
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
    const FirstPass first = sum_and_extremes(returns);
    // A missing value leaves none of the sum.
    if (!missing(first.sum) || std::ranges::none_of(returns, missing)) {
        return moments_of_present(returns, first, target);
    }
    std::vector<double> present(returns.begin(), returns.end());
    std::erase_if(present, missing);
    return moments_of_present(present, sum_and_extremes(present), target);
}

} // namespace corvex::engine::inline v1
