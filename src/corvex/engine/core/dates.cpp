#include "corvex/engine/core/dates.hpp"

#include <chrono>

namespace corvex::engine::inline v1 {

namespace {

std::chrono::sys_days to_sys_days(std::int64_t day) {
    return std::chrono::sys_days{std::chrono::days{static_cast<int>(day)}};
}

} // namespace

std::int64_t day_number(Nanos time) {
    const std::int64_t quotient = time / kNanosPerDay;
    return (time % kNanosPerDay < 0) ? quotient - 1 : quotient;
}

Nanos moved(Nanos time, std::int64_t count, Nanos length) {
    // Unsigned: the whole way may be longer than the first half of time.
    const auto from = static_cast<std::uint64_t>(time);
    const auto times = static_cast<std::uint64_t>(count);
    const std::uint64_t steps = count < 0 ? 0 - times : times;
    std::uint64_t way = 0;
    const bool endless = __builtin_mul_overflow(steps, static_cast<std::uint64_t>(length), &way);
    if (count < 0) {
        return endless || way > from - static_cast<std::uint64_t>(kEarliest)
                   ? kEarliest
                   : static_cast<Nanos>(from - way);
    }
    return endless || way > static_cast<std::uint64_t>(kLatest) - from
               ? kLatest
               : static_cast<Nanos>(from + way);
}

CivilDate civil_from_day(std::int64_t day) {
    const std::chrono::year_month_day date{to_sys_days(day)};
    return {static_cast<int>(date.year()), static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day()))};
}

std::int64_t day_from_civil(int year, int month, int day) {
    const std::chrono::year_month_day date{std::chrono::year{year},
                                           std::chrono::month{static_cast<unsigned>(month)},
                                           std::chrono::day{static_cast<unsigned>(day)}};
    return std::chrono::sys_days{date}.time_since_epoch().count();
}

int weekday(std::int64_t day) {
    return static_cast<int>(std::chrono::weekday{to_sys_days(day)}.iso_encoding()) - 1;
}

} // namespace corvex::engine::inline v1
