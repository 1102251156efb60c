#include "corvex/engine/calendar/schedule.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace corvex::engine::inline v1 {

namespace {

/// Number of the group of `multiple` periods; `offset` counts periods from the first session's.
std::int64_t group_of(const PeriodRule& rule, std::int64_t offset) {
    return (offset + rule.multiple - 1) / rule.multiple;
}

/// The first period of a group, counted as in group_of.
std::int64_t first_of_group(const PeriodRule& rule, std::int64_t group) {
    return (group - 1) * rule.multiple + 1;
}

} // namespace

std::vector<std::int64_t> period_last_sessions(std::span<const Nanos> sessions,
                                               const PeriodRule& rule) {
    std::vector<std::int64_t> rows;
    std::int64_t first = 0;
    std::int64_t current = 0;
    for (std::size_t row = 0; row < sessions.size(); ++row) {
        const std::int64_t number = period_number(rule, sessions[row], sessions.front());
        if (row == 0) {
            first = number;
            continue;
        }
        if (sessions[row] <= sessions[row - 1]) {
            throw std::invalid_argument("sessions must be strictly ascending, but row " +
                                        std::to_string(row) + " is not after the row before it");
        }
        const std::int64_t group = group_of(rule, number - first);
        if (group != current) {
            rows.push_back(static_cast<std::int64_t>(row) - 1);
            current = group;
        }
    }
    if (!sessions.empty()) {
        rows.push_back(static_cast<std::int64_t>(sessions.size()) - 1);
    }
    return rows;
}

PeriodBounds last_period_bounds(std::span<const Nanos> sessions, const PeriodRule& rule) {
    if (sessions.empty()) {
        throw std::invalid_argument("there is no period without sessions");
    }
    const Nanos origin = sessions.front();
    const std::int64_t first = period_number(rule, origin, origin);
    const std::int64_t offset = period_number(rule, sessions.back(), origin) - first;
    const std::int64_t begin = first + first_of_group(rule, group_of(rule, offset));
    return {period_start(rule, begin, origin), period_start(rule, begin + rule.multiple, origin)};
}

std::vector<std::int64_t> rows_at_or_before(std::span<const Nanos> sessions,
                                            std::span<const Nanos> dates) {
    std::vector<std::int64_t> rows;
    rows.reserve(dates.size());
    for (const Nanos date : dates) {
        const auto after = std::ranges::upper_bound(sessions, date);
        rows.push_back(static_cast<std::int64_t>(after - sessions.begin()) - 1);
    }
    return rows;
}

} // namespace corvex::engine::inline v1
