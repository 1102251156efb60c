// Runs one plan under six fees on all cores, and shows what the engine refuses.
#include "corvex/engine/portfolio/batch.hpp"

#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace engine = corvex::engine;

int main() {
    // Two assets that rise and fall in turn, held half and half and brought back each ten sessions.
    constexpr std::size_t kSessions = 1000;
    std::vector<engine::Nanos> dates;
    std::vector<std::int64_t> closes;
    std::vector<double> close;
    for (std::size_t i = 0; i < kSessions; ++i) {
        const double wave = 0.2 * std::sin(static_cast<double>(i) / 20.0);
        const double drift = static_cast<double>(i) / 1000.0;
        close.insert(close.end(), {100.0 * std::exp(drift + wave), 100.0 * std::exp(drift - wave)});
        closes.push_back(static_cast<std::int64_t>(i));
        dates.push_back(engine::start_of_day(closes.back()));
    }
    std::vector<double> targets;
    std::vector<std::int64_t> signals;
    for (std::int64_t row = 0; row < static_cast<std::int64_t>(kSessions); row += 10) {
        signals.push_back(row);
        targets.insert(targets.end(), {0.5, 0.5});
    }

    // The set and all that it views outlive the batch; no run changes them.
    const engine::PriceSet prices{{.close = {close, 2}}};
    const std::vector<engine::Plan> plans{{targets, signals, 0}};
    const std::vector<engine::Nanos> before_first{dates[0] - engine::kNanosPerDay};
    std::vector<engine::Options> options;
    std::vector<engine::BatchRun> runs;
    for (const double fee : {0.0, 0.001, 0.002, 0.005, 0.01, 0.02}) {
        runs.push_back({.plan = 0, .options = options.size()});
        options.push_back({.costs = {.fee = fee}});
    }
    const engine::Batch batch{.prices = prices,
                              .plans = plans,
                              .options = options,
                              .runs = runs,
                              .calendar = {dates, closes, before_first},
                              .threads = 0};
    const std::vector<engine::RunSummary> found = engine::run_batch(batch);
    for (std::size_t i = 0; i < found.size(); ++i) {
        std::printf("fee %.3f: total return %.6f, fees %.6f\n", options[i].costs.fee,
                    found[i].figures[0], found[i].fees);
    }

    options[0].costs.fee = -0.1;
    try {
        engine::run_batch(batch);
    } catch (const std::invalid_argument& error) {
        std::printf("refused: %s\n", error.what());
    }
}
