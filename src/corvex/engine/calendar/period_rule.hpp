#pragma once

#include "corvex/engine/core/dates.hpp"

#include <cstdint>
#include <string_view>

namespace corvex::engine::inline v1 {

/// A rule that cuts time into periods, as pandas' frequency aliases name them.
struct PeriodRule {
    enum class Unit {
        kFixed, ///< `length` nanoseconds, counted from the midnight before the first session
        kWeek,  ///< seven days that begin on weekday `anchor` (0 = Monday)
        kMonth  ///< `length` months that begin in month `anchor` (0 = January)
    };

    Unit unit = Unit::kFixed;
    std::int64_t length = kNanosPerDay;
    int anchor = 0;
    std::int64_t multiple = 1; ///< periods in one; the first one counted closes a multiple
};

/// The rule behind a frequency alias.
///
/// Old and new names both work: "D", "B" (every session, as sessions are business days), "W",
/// "W-MON" to "W-SUN", "ME"/"M", "QE"/"Q" with "-JAN" to "-DEC", "YE"/"Y"/"A" likewise, the
/// business forms of the three ("BME", ...), "h", "min", "s" and the older "H", "T", "S"; each with
/// an optional leading multiple. The begins of months ("MS") are dates and no periods' ends.
/// @throws std::invalid_argument for anything else.
PeriodRule parse_period_rule(std::string_view alias);

/// Running number of the period that holds `time`; `origin` is the first session.
std::int64_t period_number(const PeriodRule& rule, Nanos time, Nanos origin);

/// First nanosecond of period `number`, the inverse of period_number.
Nanos period_start(const PeriodRule& rule, std::int64_t number, Nanos origin);

} // namespace corvex::engine::inline v1
