#include "corvex/engine/series/periods.hpp"

#include <algorithm>

namespace corvex::engine::inline v1 {

namespace {

constexpr int kMonthsPerYear = 12;

std::int64_t month_number(const CivilDate& date) {
    return static_cast<std::int64_t>(date.year) * kMonthsPerYear + date.month - 1;
}

/// First day of a month given by its number.
std::int64_t first_day(std::int64_t month) {
    return day_from_civil(static_cast<int>(month / kMonthsPerYear),
                          static_cast<int>(month % kMonthsPerYear) + 1, 1);
}

/// Days of a month given by its number.
std::int64_t length(std::int64_t month) { return first_day(month + 1) - first_day(month); }

} // namespace

std::vector<Period> month_periods(std::span<const Nanos> times) {
    std::vector<Period> months;
    if (times.empty()) {
        return months;
    }
    const std::uint64_t days = nanos_between(times.front(), times.back()) / kNanosPerDay;
    months.reserve(std::min<std::size_t>(times.size(), days / 28 + 2));
    // A date is only worked out when a row passes the end of the current month. Each time is read
    // once: whoever owns the array may be changing it.
    Nanos next = kEarliest;
    for (std::size_t row = 0; row < times.size(); ++row) {
        const Nanos time = times[row];
        if (months.empty() || (time >= next && next != kLatest)) {
            const std::int64_t number = month_number(civil_from_day(day_number(time)));
            next = start_of_day(first_day(number + 1));
            months.push_back({number, row, row});
        }
        months.back().last = row;
    }
    return months;
}

std::vector<Period> year_periods(std::span<const Period> months) {
    std::vector<Period> years;
    years.reserve(months.size() / kMonthsPerYear + 2);
    for (const Period& month : months) {
        const std::int64_t year = month.number / kMonthsPerYear;
        if (years.empty() || years.back().number != year) {
            years.push_back({year, month.first, month.last});
        }
        years.back().last = month.last;
    }
    return years;
}

std::vector<std::size_t> day_ends(std::span<const Nanos> times) {
    std::vector<std::size_t> ends;
    std::int64_t current = 0;
    for (std::size_t row = 0; row < times.size(); ++row) {
        const std::int64_t day = day_number(times[row]);
        if (ends.empty() || day > current) {
            ends.push_back(row);
            current = day;
        }
        ends.back() = row;
    }
    return ends;
}

Nanos months_before(Nanos time, int months) {
    const std::int64_t day = day_number(time);
    const CivilDate date = civil_from_day(day);
    const std::int64_t month = month_number(date) - months;
    const std::int64_t target =
        first_day(month) + std::min<std::int64_t>(date.day, length(month)) - 1;
    return moved(time, target - day);
}

Nanos month_end_before(Nanos time, int months) {
    const std::int64_t day = day_number(time);
    const std::int64_t month = month_number(civil_from_day(day)) - months;
    return moved(time, first_day(month + 1) - 1 - day);
}

bool is_last_in_month(Nanos time, bool weekends) {
    constexpr int kSaturday = 5;
    std::int64_t next = day_number(time) + 1;
    const std::int64_t end = first_day(month_number(civil_from_day(next - 1)) + 1);
    while (!weekends && next < end && weekday(next) >= kSaturday) {
        ++next;
    }
    return next >= end;
}

} // namespace corvex::engine::inline v1
