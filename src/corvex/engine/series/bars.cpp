#include "corvex/engine/series/bars.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

namespace corvex::engine::inline v1 {

namespace {

constexpr int kBarCount = 9;

/// Upper bound (exclusive) of each bar's distance, in hours. A daily bar may span a long weekend
/// and a weekly one a holiday week; a day may have 23 hours where the clocks change.
constexpr std::array<std::pair<std::int64_t, Bar>, 7> kBounds{{
    {18, Bar::kIntraday},
    {5 * 24, Bar::kDay},
    {11 * 24, Bar::kWeek},
    {20 * 24, Bar::kTwoWeeks},
    {45 * 24, Bar::kMonth},
    {135 * 24, Bar::kQuarter},
    {270 * 24, Bar::kHalfYear},
}};
constexpr Nanos kNanosPerHour = 3600 * kNanosPerSecond;
constexpr int kDaysPerWeek = 7;
constexpr int kFirstWeekendDay = 5;

/// Days of the week in [first, last], both included.
std::array<std::int64_t, kDaysPerWeek> weekdays_between(std::int64_t first, std::int64_t last) {
    std::array<std::int64_t, kDaysPerWeek> days{};
    const std::int64_t span = last - first + 1;
    days.fill(span / kDaysPerWeek);
    const auto start = static_cast<std::size_t>(weekday(first));
    for (std::size_t i = 0; i < static_cast<std::size_t>(span % kDaysPerWeek); ++i) {
        ++days[(start + i) % kDaysPerWeek];
    }
    return days;
}

struct WeekShare {
    std::int64_t week = 0;
    std::int64_t weekend = 0;
};

WeekShare split_week(const std::array<std::int64_t, kDaysPerWeek>& days) {
    WeekShare share;
    for (std::size_t i = 0; i < days.size(); ++i) {
        (i < kFirstWeekendDay ? share.week : share.weekend) += days[i];
    }
    return share;
}

/// The days that have a bar, by weekday, and the first and last of them.
struct DayCount {
    std::array<std::int64_t, kDaysPerWeek> bars{};
    std::int64_t first = 0;
    std::int64_t last = 0;
};

/// @param times  none of them on a day before that of the first
DayCount count_days(std::span<const Nanos> times) {
    DayCount count;
    count.first = count.last = day_number(times.front());
    const auto start = static_cast<std::uint64_t>(weekday(count.first));
    // Wraps where the first day began before the first moment that can be told, and back again.
    const std::uint64_t midnight =
        static_cast<std::uint64_t>(count.first) * static_cast<std::uint64_t>(kNanosPerDay);
    ++count.bars[start];
    std::uint64_t previous = 0;
    for (const Nanos time : times) {
        const auto day = (static_cast<std::uint64_t>(time) - midnight) / kNanosPerDay;
        if (day > previous) {
            ++count.bars[(start + day) % kDaysPerWeek];
            previous = day;
        }
    }
    count.last += static_cast<std::int64_t>(previous);
    return count;
}

/// Weekends count as trading days when they are at least two thirds as likely to have a bar as
/// weekdays are. So a rare make-up session on a Saturday does not turn an exchange's year into 365
/// days, nor does the Sunday evening of a currency market, and holes spread evenly do no harm.
bool weekends_have_bars(const DayCount& count) {
    const WeekShare seen = split_week(count.bars);
    const WeekShare possible = split_week(weekdays_between(count.first, count.last));
    if (seen.weekend == 0) {
        return false;
    }
    return 3 * seen.weekend * possible.week >= 2 * seen.week * possible.weekend;
}

/// The bar of the usual gap, found by counting: that needs no copy of the distances.
Bar median_bar(std::span<const Nanos> times) {
    const std::size_t gaps = times.size() - 1;
    for (const auto& [hours, bar] : kBounds) {
        const auto bound = static_cast<std::uint64_t>(hours * kNanosPerHour);
        std::size_t shorter = 0;
        for (std::size_t gap = 0; gap < gaps; ++gap) {
            shorter += nanos_between(times[gap], times[gap + 1]) < bound ? 1U : 0U;
        }
        if (2 * shorter >= gaps) {
            return bar;
        }
    }
    return Bar::kYear;
}

int periods_per_year(Bar bar, bool weekends) {
    switch (bar) {
    case Bar::kIntraday:
    case Bar::kDay:
        return weekends ? 365 : 252;
    case Bar::kWeek:
        return 52;
    case Bar::kTwoWeeks:
        return 26;
    case Bar::kMonth:
        return 12;
    case Bar::kQuarter:
        return 4;
    case Bar::kHalfYear:
        return 2;
    case Bar::kYear:
        return 1;
    case Bar::kUnknown:
        break;
    }
    return 0;
}

} // namespace

Convention infer_convention(std::span<const Nanos> times) {
    if (times.size() < 2) {
        return {};
    }
    const Bar bar = median_bar(times);
    // A week or a month ends on any weekday, so that of a longer bar says nothing.
    const bool weekends = bar <= Bar::kDay && weekends_have_bars(count_days(times));
    return {bar, periods_per_year(bar, weekends), weekends};
}

Nanos usual_gap(std::span<const Nanos> times) {
    if (times.size() < 2) {
        return 0;
    }
    std::vector<std::uint64_t> gaps(times.size() - 1);
    for (std::size_t gap = 0; gap < gaps.size(); ++gap) {
        gaps[gap] = nanos_between(times[gap], times[gap + 1]);
    }
    const auto middle = gaps.begin() + static_cast<std::ptrdiff_t>((gaps.size() - 1) / 2);
    std::nth_element(gaps.begin(), middle, gaps.end());
    return static_cast<Nanos>(std::min(*middle, static_cast<std::uint64_t>(kLatest)));
}

std::string_view bar_name(Bar bar) {
    constexpr std::array<std::string_view, kBarCount> names{"unknown",   "intraday",    "daily",
                                                            "weekly",    "two-weekly",  "monthly",
                                                            "quarterly", "half-yearly", "yearly"};
    return names[static_cast<std::size_t>(bar)];
}

} // namespace corvex::engine::inline v1
