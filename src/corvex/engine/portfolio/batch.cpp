#include "corvex/engine/portfolio/batch.hpp"

#include "corvex/engine/core/parallel.hpp"
#include "corvex/engine/portfolio/require.hpp"
#include "corvex/engine/portfolio/simulator.hpp"
#include "corvex/engine/series/returns.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kRounding = 1e-12;
/// Reports bring their daily curve to this, and a quotient is rounded.
constexpr double kBase = 100.0;
constexpr double kNanosPerYear = 365.25 * 86'400e9;
/// Runs that share each block of prices, and the prices of a block.
constexpr std::size_t kRunsAtOnce = 8;
constexpr std::size_t kPricesAtOnce = 1U << 15U;

/// The part of a run's curve that belongs to the strategy.
struct Curve {
    std::vector<double> values;
    std::vector<Nanos> times;
};

/// Time in which nothing could be bought yet is no time of the strategy: the row ahead of the
/// first fill is the first that counts.
std::size_t rows_before_first_fill(std::span<const double> traded) {
    const auto filled = std::ranges::find_if(traded, [](double value) { return value != 0.0; });
    const auto row = filled == traded.end() ? 0 : filled - traded.begin();
    return static_cast<std::size_t>(std::max<std::ptrdiff_t>(row - 1, 0));
}

/// The days of the sessions that end one, which all runs have in common.
std::vector<Nanos> days_of(const Calendar& calendar) {
    std::vector<Nanos> days(calendar.closes.size());
    std::ranges::transform(calendar.closes, days.begin(), [&calendar](std::int64_t close) {
        return start_of_day(day_number(calendar.times[static_cast<std::size_t>(close)]));
    });
    return days;
}

/// The curve as a report's statistics read it: the last value of each day, from 100 on.
Curve daily_curve(const Batch& batch, std::span<const Nanos> days, std::size_t plan,
                  const SimulationResult& result) {
    const std::size_t first = batch.plans[plan].first_session;
    const std::size_t start = first + rows_before_first_fill(result.traded);
    const auto closes = std::ranges::subrange(
        std::ranges::lower_bound(batch.calendar.closes, static_cast<std::int64_t>(start)),
        batch.calendar.closes.end());
    const auto own = days.last(closes.size());
    Curve curve;
    curve.values.reserve(own.size() + 1);
    curve.times.reserve(own.size() + 1);
    const bool led = std::abs(result.equity[start - first] - 1.0) > kRounding;
    if (led) {
        const Nanos day = start_of_day(day_number(batch.calendar.before_first[plan]));
        if (own.empty() || own.front() != day) {
            curve.times.push_back(day);
            curve.values.push_back(1.0);
        }
    }
    curve.times.insert(curve.times.end(), own.begin(), own.end());
    const std::size_t lead = curve.values.size();
    for (const std::int64_t close : closes) {
        curve.values.push_back(result.equity[static_cast<std::size_t>(close) - first]);
    }
    if (!led && !own.empty() && static_cast<std::size_t>(closes.front()) == start) {
        curve.values[lead] = 1.0;
    }
    rebase(curve.values, kBase, curve.values);
    return curve;
}

double total(std::span<const double> values) {
    double sum = 0.0;
    for (const double value : values) {
        sum += value;
    }
    return sum;
}

double yearly_turnover(const Batch& batch, std::size_t plan, const SimulationResult& result) {
    const std::size_t first = batch.plans[plan].first_session;
    const std::size_t skipped = rows_before_first_fill(result.traded);
    const bool led = std::abs(result.equity[skipped] - 1.0) > kRounding;
    const Nanos start =
        led ? batch.calendar.before_first[plan] : batch.calendar.times[first + skipped];
    const double years = static_cast<double>(batch.calendar.times.back() - start) / kNanosPerYear;
    double shares = 0.0;
    for (std::size_t row = 0; row < result.equity.size(); ++row) {
        shares += result.equity[row] > 0.0 ? result.traded[row] / result.equity[row] : 0.0;
    }
    return years > 0.0 ? shares / 2.0 / years : kNaN;
}

void count_trades(const SimulationResult& result, RunSummary& summary) {
    std::int64_t won = 0;
    for (const RoundTrip& trip : result.round_trips) {
        const bool closed = trip.filled() && trip.exit_session >= 0;
        summary.trades += closed ? 1 : 0;
        won += closed && trip.net_return > 0.0 ? 1 : 0;
    }
    if (summary.trades > 0) {
        summary.win_rate = static_cast<double>(won) / static_cast<double>(summary.trades);
    }
}

/// Sums over blocks of all sessions, the first of them one longer where they cannot be equal; there
/// is no return before the run starts.
void sum_blocks(const Batch& batch, std::size_t first, std::span<const double> equity,
                RunSummary& summary) {
    const std::size_t returns = batch.prices.sessions() - 1;
    summary.sums.assign(batch.blocks, 0.0);
    summary.squares.assign(batch.blocks, 0.0);
    std::size_t end = 0;
    std::size_t row = 0;
    for (std::size_t block = 0; block < batch.blocks; ++block) {
        end += returns / batch.blocks + (block < returns % batch.blocks ? 1 : 0);
        for (; row < end; ++row) {
            const double before = row >= first ? equity[row - first] : 1.0;
            const double after = row + 1 >= first ? equity[row + 1 - first] : 1.0;
            const double value = before > 0.0 ? after / before - 1.0 : 0.0;
            summary.sums[block] += value;
            summary.squares[block] += value * value;
        }
    }
}

RunSummary summarise(const Batch& batch, std::span<const Nanos> days, std::size_t run,
                     const SimulationResult& result) {
    const std::size_t plan = batch.runs[run].plan;
    const std::size_t first = batch.plans[plan].first_session;
    RunSummary summary{{},
                       total(result.fees),
                       total(result.taxes),
                       total(result.slippage),
                       kNaN,
                       kNaN,
                       0,
                       result.ruin_session,
                       {},
                       {}};
    summary.figures.fill(kNaN);
    if (!result.equity.empty()) {
        const Curve curve = daily_curve(batch, days, plan, result);
        summary.figures =
            figure_values(performance_record(curve.values, curve.times, batch.riskfree_rate));
        summary.turnover = yearly_turnover(batch, plan, result);
    }
    count_trades(result, summary);
    if (batch.blocks > 0) {
        sum_blocks(batch, first, result.equity, summary);
    }
    if (!batch.curves.empty()) {
        const auto row =
            batch.curves.subspan(run * batch.prices.sessions(), batch.prices.sessions());
        std::fill_n(row.begin(), first, 1.0);
        std::ranges::copy(result.equity, row.begin() + static_cast<std::ptrdiff_t>(first));
    }
    return summary;
}

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
            .record = {.trades = true, .excursions = false, .fills = false}};
}

/// Runs [begin, end), which take turns block by block.
void run_together(const Batch& batch, std::span<const Nanos> days, std::size_t begin,
                  std::size_t end, std::span<RunSummary> out) {
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
        out[run] = summarise(batch, days, run, simulators[run - begin]->finish());
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
    in_parallel(
        batch.runs.size(), small ? 1 : kRunsAtOnce, batch.threads,
        [&](std::size_t begin, std::size_t end) { run_together(batch, days, begin, end, out); });
    return out;
}

} // namespace corvex::engine::inline v1
