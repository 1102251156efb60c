#include "corvex/engine/metrics/benchmark_fit.hpp"

#include "corvex/engine/series/returns.hpp"

#include <cmath>
#include <cstddef>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace corvex::engine {

namespace {

/// A variance per pair below this is the rounding of a constant benchmark.
constexpr double kLeastVariance = 1e-30;

/// Returns of both curves over the bars on which both have one.
struct PairedReturns {
    std::vector<double> strategy;
    std::vector<double> benchmark;
};

PairedReturns paired_returns(std::span<const double> strategy, std::span<const double> benchmark) {
    PairedReturns pairs{simple_returns(strategy), simple_returns(benchmark)};
    std::size_t kept = 0;
    for (std::size_t row = 0; row < pairs.strategy.size(); ++row) {
        // Written always and kept if both are there: no branch to guess wrong at each hole.
        pairs.strategy[kept] = pairs.strategy[row];
        pairs.benchmark[kept] = pairs.benchmark[row];
        const bool both = std::isfinite(pairs.strategy[row]) && std::isfinite(pairs.benchmark[row]);
        kept += both ? 1U : 0U;
    }
    pairs.strategy.resize(kept);
    pairs.benchmark.resize(kept);
    return pairs;
}

double mean_of(const std::vector<double>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
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
    const PairedReturns pairs = paired_returns(strategy, benchmark);
    BenchmarkFit fit;
    fit.pairs = pairs.strategy.size();
    if (fit.pairs < 2) {
        return fit;
    }
    const auto count = static_cast<double>(fit.pairs);
    const double mean_strategy = mean_of(pairs.strategy);
    const double mean_benchmark = mean_of(pairs.benchmark);
    double variance = 0.0;
    double covariance = 0.0;
    for (std::size_t pair = 0; pair < fit.pairs; ++pair) {
        const double spread = pairs.benchmark[pair] - mean_benchmark;
        variance += spread * spread;
        covariance += spread * (pairs.strategy[pair] - mean_strategy);
    }
    if (variance <= kLeastVariance * count) {
        return fit;
    }
    fit.beta = covariance / variance;
    fit.alpha = std::pow(1.0 + mean_strategy - fit.beta * mean_benchmark, periods_per_year) - 1.0;
    return fit;
}

} // namespace corvex::engine
