#pragma once

#include <cstdint>

namespace corvex::engine::inline v1 {

/// Nanoseconds since 1970-01-01, in the local time of the series (no zone is known here).
using Nanos = std::int64_t;

inline constexpr Nanos kNanosPerSecond = 1'000'000'000;
inline constexpr Nanos kNanosPerDay = 86'400 * kNanosPerSecond;

inline constexpr Nanos kEarliest = INT64_MIN;
inline constexpr Nanos kLatest = INT64_MAX;

/// The value that stands for a missing date (pandas' NaT).
inline constexpr Nanos kMissingDate = INT64_MIN;

struct CivilDate {
    int year;
    int month; ///< 1 to 12
    int day;   ///< 1 to 31
};

/// Whole days since the epoch, rounded towards the past.
std::int64_t day_number(Nanos time);

/// From a moment to a later one, 0 where it is not later. Any two moments are that far apart.
constexpr std::uint64_t nanos_between(Nanos from, Nanos to) {
    return to > from ? static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from) : 0;
}

/// A moment so many times a length (0 or more) later; at the ends of what can be told (the years
/// 1677 and 2262) it stays at the end.
Nanos moved(Nanos time, std::int64_t count, Nanos length = kNanosPerDay);

/// The midnight with which a day begins, likewise.
inline Nanos start_of_day(std::int64_t day) { return moved(0, day); }

/// The proleptic Gregorian date of a day number.
CivilDate civil_from_day(std::int64_t day);

/// The inverse of civil_from_day; `month` 1 to 12, `day` within the month.
std::int64_t day_from_civil(int year, int month, int day);

/// Day of the week, 0 = Monday to 6 = Sunday.
int weekday(std::int64_t day);

} // namespace corvex::engine::inline v1
