#include "corvex/engine/portfolio/batch.hpp"

#include "corvex/engine/core/parallel.hpp"
#include "corvex/engine/portfolio/require.hpp"
#include "corvex/engine/portfolio/run_summary.hpp"
#include "corvex/engine/portfolio/simulator.hpp"

#include <algorithm>
#include <functional>
#include <memory>

namespace corvex::engine::inline v1 {

namespace {

/// Runs that share each block of prices, and the prices of a block.
constexpr std::size_t kRunsAtOnce = 8;
constexpr std::size_t kPricesAtOnce = 1U << 15U;

void validate(const Batch& batch) {
    const std::size_t sessions = batch.prices.sessions();
    require(batch.calendar.times.size() == sessions, "each session needs a time");
    require(batch.calendar.before_first.size() == batch.plans.size(),
            "each plan needs the time before its first session");
    require(std::ranges::all_of(batch.calendar.closes,
                                [&](std::int64_t row) {
                                    return row >= 0 && static_cast<std::size_t>(row) < sessions;
                                }),
            "a row that ends a day lies outside the price table");
    require(std::ranges::adjacent_find(batch.calendar.closes, std::ranges::greater_equal{}) ==
                batch.calendar.closes.end(),
            "the rows that end a day must rise");
    require(batch.curves.empty() || batch.curves.size() == batch.runs.size() * sessions,
            "the curves do not fit the runs and the price table");
    require(batch.blocks == 0 || batch.blocks < sessions,
            "there must be at least one return for each block");
    require(std::ranges::all_of(batch.runs,
                                [&](const BatchRun& run) {
                                    return run.plan < batch.plans.size() &&
                                           run.options < batch.options.size();
                                }),
            "a run names a plan or options that are not there");
}

SimulationInput input_of(const Batch& batch, const BatchRun& run) {
    return {.prices = batch.prices,
            .plan = batch.plans[run.plan],
            .options = batch.options[run.options],
            .record = {.excursions = false, .counts_only = true}};
}

/// Runs [begin, end), which take turns block by block.
void run_together(const Batch& batch, RunReader& reader, std::size_t begin, std::size_t end,
                  std::span<RunSummary> out) {
    std::vector<SimulationInput> inputs;
    std::vector<std::unique_ptr<Simulator>> simulators;
    inputs.reserve(end - begin);
    for (std::size_t run = begin; run < end; ++run) {
        inputs.push_back(input_of(batch, batch.runs[run]));
        simulators.push_back(std::make_unique<Simulator>(inputs.back()));
    }
    const std::size_t sessions = batch.prices.sessions();
    const std::size_t step = end - begin == 1
                                 ? sessions
                                 : std::max<std::size_t>(1, kPricesAtOnce / batch.prices.assets());
    for (std::size_t done = 0; done < sessions;) {
        done = std::min(sessions, done + step);
        for (const auto& simulator : simulators) {
            simulator->advance(done);
        }
    }
    for (std::size_t run = begin; run < end; ++run) {
        out[run] = reader.read(run, simulators[run - begin]->finish());
        simulators[run - begin].reset();
    }
}

} // namespace

std::vector<RunSummary> run_batch(const Batch& batch) {
    validate(batch);
    if (batch.runs.empty()) {
        return {};
    }
    // Each plan and each set of options once, not with every run.
    for (std::size_t plan = 0; plan < batch.plans.size(); ++plan) {
        validate(input_of(batch, {plan, batch.runs.front().options}));
    }
    for (std::size_t options = 0; options < batch.options.size(); ++options) {
        validate(input_of(batch, {batch.runs.front().plan, options}));
    }
    const std::vector<Nanos> days = days_of(batch.calendar);
    std::vector<RunSummary> out(batch.runs.size());
    // Prices that stay in the cache anyway need no turns.
    const bool small = batch.prices.sessions() * batch.prices.assets() <= 4 * kPricesAtOnce;
    in_parallel(batch.runs.size(), small ? 1 : kRunsAtOnce, batch.threads,
                [&, reader = RunReader(batch, days)](std::size_t begin, std::size_t end) mutable {
                    run_together(batch, reader, begin, end, out);
                });
    return out;
}

} // namespace corvex::engine::inline v1
