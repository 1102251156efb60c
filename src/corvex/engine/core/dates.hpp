#pragma once

#include <cstdint>

namespace corvex::engine {

/// Nanoseconds since 1970-01-01, in the local time of the series (no zone is known here).
using Nanos = std::int64_t;

inline constexpr Nanos kNanosPerSecond = 1'000'000'000;
inline constexpr Nanos kNanosPerDay = 86'400 * kNanosPerSecond;

/// The value that stands for a missing date (pandas' NaT).
inline constexpr Nanos kMissingDate = INT64_MIN;

struct CivilDate {
    int year;
    int month; ///< 1 to 12
    int day;   ///< 1 to 31
};

/// Whole days since the epoch, rounded towards the past.
std::int64_t day_number(Nanos time);

/// The proleptic Gregorian date of a day number.
CivilDate civil_from_day(std::int64_t day);

/// The inverse of civil_from_day; `month` 1 to 12, `day` within the month.
std::int64_t day_from_civil(int year, int month, int day);

/// Day of the week, 0 = Monday to 6 = Sunday.
int weekday(std::int64_t day);

} // namespace corvex::engine
