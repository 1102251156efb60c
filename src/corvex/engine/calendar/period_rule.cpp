#include "corvex/engine/calendar/period_rule.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <string>

namespace corvex::engine::inline v1 {

namespace {

using Unit = PeriodRule::Unit;

struct Alias {
    std::string_view name;
    Unit unit;
    std::int64_t length;
};

constexpr std::array kAliases{
    Alias{"D", Unit::kFixed, kNanosPerDay},
    Alias{"B", Unit::kFixed, kNanosPerDay},
    Alias{"h", Unit::kFixed, 3600 * kNanosPerSecond},
    Alias{"H", Unit::kFixed, 3600 * kNanosPerSecond},
    Alias{"min", Unit::kFixed, 60 * kNanosPerSecond},
    Alias{"T", Unit::kFixed, 60 * kNanosPerSecond},
    Alias{"s", Unit::kFixed, kNanosPerSecond},
    Alias{"S", Unit::kFixed, kNanosPerSecond},
    Alias{"W", Unit::kWeek, 1},
    Alias{"M", Unit::kMonth, 1},
    Alias{"ME", Unit::kMonth, 1},
    Alias{"Q", Unit::kMonth, 3},
    Alias{"QE", Unit::kMonth, 3},
    Alias{"Y", Unit::kMonth, 12},
    Alias{"YE", Unit::kMonth, 12},
    Alias{"A", Unit::kMonth, 12},
};
constexpr std::array<std::string_view, 7> kWeekdays{"MON", "TUE", "WED", "THU",
                                                    "FRI", "SAT", "SUN"};
constexpr std::array<std::string_view, 12> kMonths{"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                                   "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};
constexpr std::int64_t kMostPeriods = 100'000;
/// Years that no moment lies outside of.
constexpr std::int64_t kFirstYear = 1600;
constexpr std::int64_t kLastYear = 2300;
/// 1970-01-01 was a Thursday.
constexpr std::int64_t kWeekdayOfDayZero = 3;

std::int64_t floor_div(std::int64_t a, std::int64_t b) {
    const std::int64_t quotient = a / b;
    return (a % b < 0) ? quotient - 1 : quotient;
}

template <std::size_t Size>
std::optional<int> position(const std::array<std::string_view, Size>& names,
                            std::string_view name) {
    const auto* const found = std::ranges::find(names, name);
    if (found == names.end()) {
        return std::nullopt;
    }
    return static_cast<int>(found - names.begin());
}

std::optional<Alias> find_alias(std::string_view name) {
    const auto* found = std::ranges::find(kAliases, name, &Alias::name);
    if (found == kAliases.end() && name.size() > 1 && name.front() == 'B') {
        // The business forms differ only in the label of a period, never in its sessions.
        found = std::ranges::find(kAliases, name.substr(1), &Alias::name);
        if (found != kAliases.end() && found->unit != Unit::kMonth) {
            return std::nullopt;
        }
    }
    return found == kAliases.end() ? std::nullopt : std::optional{*found};
}

/// Where periods begin, from the anchor that an alias names ("FRI", "JAN"; empty = the default).
std::optional<int> anchor_of(const Alias& alias, std::string_view name) {
    const bool anchored =
        alias.unit == Unit::kWeek || (alias.unit == Unit::kMonth && alias.length > 1);
    if (!anchored) {
        return name.empty() ? std::optional{0} : std::nullopt;
    }
    if (alias.unit == Unit::kWeek) {
        const auto last = name.empty() ? std::optional{6} : position(kWeekdays, name);
        return last ? std::optional{(*last + 1) % 7} : std::nullopt;
    }
    const auto last = name.empty() ? std::optional{11} : position(kMonths, name);
    return last ? std::optional{(*last + 1) % static_cast<int>(alias.length)} : std::nullopt;
}

[[noreturn]] void refuse(std::string_view alias) {
    throw std::invalid_argument(
        "unknown rebalance frequency '" + std::string{alias} +
        "': use a pandas alias such as 'D', 'W', 'W-FRI', 'ME', 'QE', 'YE', 'h' or 'min', with an "
        "optional multiple such as '2W'");
}

} // namespace

PeriodRule parse_period_rule(std::string_view alias) {
    std::int64_t multiple = 1;
    std::string_view rest = alias;
    if (!rest.empty() && rest.front() >= '0' && rest.front() <= '9') {
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), multiple);
        if (error != std::errc{} || multiple < 1 || multiple > kMostPeriods) {
            throw std::invalid_argument("rebalance frequency '" + std::string{alias} +
                                        "': the multiple must be from 1 to " +
                                        std::to_string(kMostPeriods));
        }
        rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    }
    const std::size_t dash = std::min(rest.find('-'), rest.size());
    const auto found = find_alias(rest.substr(0, dash));
    const auto anchor =
        found ? anchor_of(*found, rest.substr(std::min(dash + 1, rest.size()))) : std::nullopt;
    if (!anchor || dash + 1 == rest.size()) {
        refuse(alias);
    }
    if (found->unit == Unit::kFixed) {
        return {Unit::kFixed, found->length * multiple, 0, 1};
    }
    return {found->unit, found->length, *anchor, multiple};
}

std::int64_t period_number(const PeriodRule& rule, Nanos time, Nanos origin) {
    const std::int64_t day = day_number(time);
    switch (rule.unit) {
    case Unit::kFixed:
        return static_cast<std::int64_t>(nanos_between(start_of_day(day_number(origin)), time) /
                                         static_cast<std::uint64_t>(rule.length));
    case Unit::kWeek:
        return floor_div(day + kWeekdayOfDayZero - rule.anchor, 7);
    case Unit::kMonth:
        break;
    }
    const CivilDate date = civil_from_day(day);
    return floor_div(std::int64_t{date.year} * 12 + date.month - 1 - rule.anchor, rule.length);
}

Nanos period_start(const PeriodRule& rule, std::int64_t number, Nanos origin) {
    switch (rule.unit) {
    case Unit::kFixed:
        return moved(start_of_day(day_number(origin)), number, rule.length);
    case Unit::kWeek:
        return start_of_day(number * 7 - kWeekdayOfDayZero + rule.anchor);
    case Unit::kMonth:
        break;
    }
    const std::int64_t month = number * rule.length + rule.anchor;
    const std::int64_t year = floor_div(month, 12);
    const auto known = static_cast<int>(std::clamp(year, kFirstYear, kLastYear));
    return start_of_day(day_from_civil(known, static_cast<int>(month - year * 12) + 1, 1));
}

} // namespace corvex::engine::inline v1
