#include "corvex/engine/metrics/benchmark_fit.hpp"

#include <cmath>
#include <stdexcept>
#include <vector>

namespace corvex::engine {

namespace {

struct Pair {
    double strategy;
    double benchmark;
};

/// A variance per pair below this is the rounding of a constant benchmark.
constexpr double kLeastVariance = 1e-30;

std::vector<Pair> paired_returns(std::span<const double> strategy,
                                 std::span<const double> benchmark) {
    std::vector<Pair> pairs;
    pairs.reserve(strategy.size());
    for (std::size_t row = 1; row < strategy.size(); ++row) {
        const Pair pair{strategy[row] / strategy[row - 1] - 1.0,
                        benchmark[row] / benchmark[row - 1] - 1.0};
        if (std::isfinite(pair.strategy) && std::isfinite(pair.benchmark)) {
            pairs.push_back(pair);
        }
    }
    return pairs;
}

} // namespace

BenchmarkFit benchmark_fit(std::span<const double> strategy, std::span<const double> benchmark,
                           double periods_per_year) {
    if (strategy.size() != benchmark.size()) {
        throw std::invalid_argument("strategy and benchmark must have one value per date each");
    }
    if (!(periods_per_year > 0.0)) {
        throw std::invalid_argument("periods_per_year must be above 0");
    }
    const std::vector<Pair> pairs = paired_returns(strategy, benchmark);
    BenchmarkFit fit;
    fit.pairs = pairs.size();
    if (pairs.size() < 2) {
        return fit;
    }
    const auto count = static_cast<double>(pairs.size());
    Pair mean{0.0, 0.0};
    for (const Pair& pair : pairs) {
        mean.strategy += pair.strategy;
        mean.benchmark += pair.benchmark;
    }
    mean.strategy /= count;
    mean.benchmark /= count;
    double variance = 0.0;
    double covariance = 0.0;
    for (const Pair& pair : pairs) {
        const double spread = pair.benchmark - mean.benchmark;
        variance += spread * spread;
        covariance += spread * (pair.strategy - mean.strategy);
    }
    if (variance <= kLeastVariance * count) {
        return fit;
    }
    fit.beta = covariance / variance;
    fit.alpha = std::pow(1.0 + mean.strategy - fit.beta * mean.benchmark, periods_per_year) - 1.0;
    return fit;
}

} // namespace corvex::engine
