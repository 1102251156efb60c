#pragma once

#include "corvex/engine/core/dates.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// The rows of a curve that fall into one month or one year.
struct Period {
    std::int64_t number; ///< year * 12 + month - 1 for a month, the year itself for a year
    std::size_t first;
    std::size_t last; ///< included
};

/// The months that have a row, in order; months without one are left out.
std::vector<Period> month_periods(std::span<const Nanos> times);

/// The years that have a row, put together from the months.
std::vector<Period> year_periods(std::span<const Period> months);

/// The last row of each day.
std::vector<std::size_t> day_ends(std::span<const Nanos> times);

/// `time` moved back by whole months; a day that the month lacks becomes its last day
/// (31 May less 3 months is 28 or 29 February).
Nanos months_before(Nanos time, int months);

/// The last day of the month that is so many months before the month of `time`; the time of day
/// stays.
Nanos month_end_before(Nanos time, int months);

/// Whether no day is left in the month on which a bar could follow.
/// @param weekends  whether Saturdays and Sundays have bars
bool is_last_in_month(Nanos time, bool weekends);

} // namespace corvex::engine::inline v1
