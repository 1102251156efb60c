#include "corvex/engine/statistics/benchmark_fit.hpp"

#include "corvex/engine/core/lanes.hpp"
#include "corvex/engine/series/returns.hpp"

#include <array>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace corvex::engine::inline v1 {

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

/// The sum over rows of `term(row)`, four partial sums side by side: one alone would wait for
/// itself at every addition.
template <typename Term>
double sum_over(std::size_t rows, Term term) {
    std::array<double, kLanes> parts{};
    std::size_t row = 0;
    for (; row + kLanes <= rows; row += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            parts[lane] += term(row + lane);
        }
    }
    double total = (parts[0] + parts[1]) + (parts[2] + parts[3]);
    for (; row < rows; ++row) {
        total += term(row);
    }
    return total;
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
    const std::vector<double>& own = pairs.strategy;
    const std::vector<double>& market = pairs.benchmark;
    const double own_mean = sum_over(fit.pairs, [&](std::size_t row) { return own[row]; }) / count;
    const double market_mean =
        sum_over(fit.pairs, [&](std::size_t row) { return market[row]; }) / count;
    const double variance = sum_over(fit.pairs, [&](std::size_t row) {
        return (market[row] - market_mean) * (market[row] - market_mean);
    });
    const double covariance = sum_over(fit.pairs, [&](std::size_t row) {
        return (market[row] - market_mean) * (own[row] - own_mean);
    });
    if (variance <= kLeastVariance * count) {
        return fit;
    }
    fit.beta = covariance / variance;
    fit.alpha = std::pow(1.0 + own_mean - fit.beta * market_mean, periods_per_year) - 1.0;
    return fit;
}

} // namespace corvex::engine::inline v1
