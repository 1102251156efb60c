#include "corvex/engine/portfolio/run_summary.hpp"

#include "corvex/engine/core/lanes.hpp"
#include "corvex/engine/series/curve.hpp"
#include "corvex/engine/series/returns.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
/// Reports bring their daily curve to this, and a quotient is rounded.
constexpr double kBase = 100.0;
constexpr double kNanosPerYear = 365.25 * 86'400e9;

/// Of a series that is zero where nothing was traded.
double total(std::span<const double> values, std::span<const std::size_t> trading_rows) {
    double sum = 0.0;
    for (const std::size_t row : trading_rows) {
        sum += values[row];
    }
    return sum;
}

/// What a curve earns from row to row; nothing once it is worth nothing.
CORVEX_VECTOR_CLONES
void curve_returns(std::span<const double> equity, std::span<double> out) {
    for (std::size_t row = 0; row < out.size(); ++row) {
        out[row] = equity[row] > 0.0 ? equity[row + 1] / equity[row] - 1.0 : 0.0;
    }
}

/// Adds up some blocks of returns beside each other, so that no addition waits for another's.
struct BlockSums {
    std::array<double, kLanes> sums{};
    std::array<double, kLanes> squares{};

    void add(std::size_t lane, double value) {
        sums[lane] += value;
        squares[lane] += value * value;
    }
};

} // namespace

std::vector<Nanos> days_of(const Calendar& calendar) {
    std::vector<Nanos> days(calendar.closes.size());
    std::ranges::transform(calendar.closes, days.begin(), [&calendar](std::int64_t close) {
        return start_of_day(day_number(calendar.times[static_cast<std::size_t>(close)]));
    });
    return days;
}

RunSummary RunReader::read(std::size_t run, const SimulationResult& result) {
    const std::size_t plan = batch_.runs[run].plan;
    const std::size_t first = batch_.plans[plan].first_session;
    RunSummary summary{{},
                       total(result.fees, result.trading_rows),
                       total(result.taxes, result.trading_rows),
                       total(result.slippage, result.trading_rows),
                       kNaN,
                       kNaN,
                       0,
                       result.ruin_session,
                       static_cast<std::int64_t>(first),
                       {},
                       {}};
    summary.figures.fill(kNaN);
    if (!result.equity.empty()) {
        const CurveStart start = result.curve_start();
        summary.begins = static_cast<std::int64_t>(first + start.row) - (start.led ? 1 : 0);
        summary.figures = figures(plan, start, result.equity);
        summary.turnover = yearly_turnover(plan, start, result);
    }
    const TripCounts& trips = result.trip_counts;
    summary.trades = trips.closed;
    if (trips.closed > 0) {
        summary.win_rate = static_cast<double>(trips.won) / static_cast<double>(trips.closed);
    }
    if (batch_.blocks > 0) {
        sum_blocks(first, result.equity, summary);
    }
    if (!batch_.curves.empty()) {
        write_curve(run, first, result.equity);
    }
    return summary;
}

/// Of the curve as a report's statistics read it: the last value of each day, from 100 on.
std::array<double, kFigureCount> RunReader::figures(std::size_t plan, const CurveStart& start,
                                                    std::span<const double> equity) {
    const std::size_t first = batch_.plans[plan].first_session;
    const auto from = std::ranges::lower_bound(batch_.calendar.closes,
                                               static_cast<std::int64_t>(first + start.row));
    const auto closes = batch_.calendar.closes.subspan(
        static_cast<std::size_t>(from - batch_.calendar.closes.begin()));
    const auto own = days_.last(closes.size());
    std::optional<Nanos> lead;
    if (start.led) {
        const Nanos day = start_of_day(day_number(batch_.calendar.before_first[plan]));
        if (own.empty() || own.front() != day) {
            lead = day;
        }
    }
    curve_.resize(own.size() + (lead.has_value() ? 1 : 0));
    const auto values = std::span(curve_).last(own.size());
    for (std::size_t day = 0; day < values.size(); ++day) {
        values[day] = equity[static_cast<std::size_t>(closes[day]) - first];
    }
    if (!start.led && !own.empty() &&
        static_cast<std::size_t>(closes.front()) == first + start.row) {
        values.front() = 1.0;
    }
    if (lead.has_value()) {
        curve_.front() = 1.0;
    }
    rebase(curve_, kBase, curve_);
    const CurveDates& known = dates(own.size(), lead);
    return figure_values(all_finite(curve_)
                             ? performance_record(curve_, known, batch_.riskfree_rate)
                             : performance_record(curve_, known.times, batch_.riskfree_rate));
}

/// Of the last so many days, and one before them.
const CurveDates& RunReader::dates(std::size_t count, std::optional<Nanos> lead) {
    const std::size_t length = count + (lead.has_value() ? 1 : 0);
    if (dates_.has_value() && lead == lead_ && dates_->times.size() == length) {
        return *dates_;
    }
    const auto own = days_.last(count);
    lead_ = lead;
    if (!lead.has_value()) {
        return dates_.emplace(own);
    }
    led_days_.assign(1, *lead);
    led_days_.insert(led_days_.end(), own.begin(), own.end());
    return dates_.emplace(led_days_);
}

double RunReader::yearly_turnover(std::size_t plan, const CurveStart& start,
                                  const SimulationResult& result) const {
    const Calendar& calendar = batch_.calendar;
    const Nanos from = start.led ? calendar.before_first[plan]
                                 : calendar.times[batch_.plans[plan].first_session + start.row];
    const double years = static_cast<double>(calendar.times.back() - from) / kNanosPerYear;
    double shares = 0.0;
    for (const std::size_t row : result.trading_rows) {
        shares += result.equity[row] > 0.0 ? result.traded[row] / result.equity[row] : 0.0;
    }
    return years > 0.0 ? shares / 2.0 / years : kNaN;
}

/// Sums over blocks of all sessions, the first of them one longer where they cannot be equal; there
/// is no return before the run starts.
void RunReader::sum_blocks(std::size_t first, std::span<const double> equity, RunSummary& summary) {
    returns_.assign(batch_.prices.sessions() - 1, 0.0);
    if (!equity.empty()) {
        curve_returns(equity, std::span(returns_).subspan(first));
        if (first > 0) {
            returns_[first - 1] = equity.front() - 1.0;
        }
    }
    const std::size_t longer = returns_.size() % batch_.blocks;
    const std::size_t length = returns_.size() / batch_.blocks;
    summary.sums.assign(batch_.blocks, 0.0);
    summary.squares.assign(batch_.blocks, 0.0);
    for (std::size_t block = 0; block < batch_.blocks; block += kLanes) {
        const std::size_t lanes = std::min(kLanes, batch_.blocks - block);
        std::array<const double*, kLanes> from{};
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            const std::size_t at = block + std::min(lane, lanes - 1);
            from[lane] = returns_.data() + at * length + std::min(at, longer);
        }
        BlockSums sums;
        for (std::size_t row = 0; row < length; ++row) {
            for (std::size_t lane = 0; lane < kLanes; ++lane) {
                sums.add(lane, from[lane][row]);
            }
        }
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            if (block + lane < longer) {
                sums.add(lane, from[lane][length]);
            }
            summary.sums[block + lane] = sums.sums[lane];
            summary.squares[block + lane] = sums.squares[lane];
        }
    }
}

void RunReader::write_curve(std::size_t run, std::size_t first,
                            std::span<const double> equity) const {
    const std::size_t sessions = batch_.prices.sessions();
    const auto row = batch_.curves.subspan(run * sessions, sessions);
    std::fill_n(row.begin(), first, 1.0);
    std::ranges::copy(equity, row.begin() + static_cast<std::ptrdiff_t>(first));
}

} // namespace corvex::engine::inline v1
