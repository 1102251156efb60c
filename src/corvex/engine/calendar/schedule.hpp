#pragma once

#include "corvex/engine/calendar/period_rule.hpp"

#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// A half-open stretch of time.
struct PeriodBounds {
    Nanos start;
    Nanos end;
};

/// Rows of the last session of each period, ascending.
///
/// The last session closes the list whether or not its period is over: only a market's calendar
/// can tell. Multiples are counted from the period of the first session, as pandas counts them.
/// @param sessions  strictly ascending, in the market's local time.
/// @return empty for no sessions.
/// @throws std::invalid_argument for sessions that are not strictly ascending.
std::vector<std::int64_t> period_last_sessions(std::span<const Nanos> sessions,
                                               const PeriodRule& rule);

/// The period that holds the last session.
/// @throws std::invalid_argument for no sessions.
PeriodBounds last_period_bounds(std::span<const Nanos> sessions, const PeriodRule& rule);

/// For each date the last row at or before it, -1 where there is none.
std::vector<std::int64_t> rows_at_or_before(std::span<const Nanos> sessions,
                                            std::span<const Nanos> dates);

} // namespace corvex::engine::inline v1
