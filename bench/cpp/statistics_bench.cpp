#include "corvex/engine/core/dates.hpp"
#include "corvex/engine/drawdown/curve.hpp"
#include "corvex/engine/drawdown/episodes.hpp"
#include "corvex/engine/statistics/record.hpp"
#include "corvex/engine/statistics/return_table.hpp"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kRiskfreeRate = 0.02;
constexpr std::int64_t kDay = 86'400'000'000'000;
constexpr std::int64_t kFirstMonday = 12'786 * kDay; // 2005-01-03

struct Curve {
    std::vector<double> values;
    std::vector<Nanos> times;
};

/// A random walk of daily prices on business days.
Curve daily_curve(std::size_t count) {
    std::mt19937_64 generator(7);
    std::normal_distribution<double> step(0.0004, 0.01);
    Curve curve;
    double level = std::log(100.0);
    for (std::size_t i = 0; i < count; ++i) {
        level += step(generator);
        curve.values.push_back(std::exp(level));
        const auto week = static_cast<std::int64_t>(i / 5);
        curve.times.push_back(kFirstMonday + (7 * week + static_cast<std::int64_t>(i % 5)) * kDay);
    }
    return curve;
}

/// Times `work` on a curve of as many values as the benchmark's argument says.
template <typename Work>
void on_curve(benchmark::State& state, Work work) {
    const Curve curve = daily_curve(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(work(curve));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_performance_record(benchmark::State& state) {
    on_curve(state,
             [](const Curve& c) { return performance_record(c.values, c.times, kRiskfreeRate); });
}

void BM_return_table(benchmark::State& state) {
    on_curve(state, [](const Curve& c) { return return_table(c.values, c.times); });
}

void BM_largest_episodes(benchmark::State& state) {
    on_curve(state, [](const Curve& c) { return largest_episodes(c.values, 10); });
}

void BM_drawdown_curve(benchmark::State& state) {
    on_curve(state, [](const Curve& c) {
        std::vector<double> out(c.values.size());
        drawdown_curve(c.values, out);
        return out;
    });
}

// One year, ten years and a hundred years of days.
BENCHMARK(BM_performance_record)->Arg(252)->Arg(2520)->Arg(25'200);
BENCHMARK(BM_return_table)->Arg(252)->Arg(2520)->Arg(25'200);
BENCHMARK(BM_largest_episodes)->Arg(252)->Arg(2520)->Arg(25'200);
BENCHMARK(BM_drawdown_curve)->Arg(252)->Arg(2520)->Arg(25'200);

} // namespace
} // namespace corvex::engine
