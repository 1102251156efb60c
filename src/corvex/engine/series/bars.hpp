#pragma once

#include "corvex/engine/core/dates.hpp"

#include <span>
#include <string_view>

namespace corvex::engine::inline v1 {

/// The usual distance between two rows of a curve, shortest first.
enum class Bar { kUnknown, kIntraday, kDay, kWeek, kTwoWeeks, kMonth, kQuarter, kHalfYear, kYear };

/// How a curve's figures are annualised.
struct Convention {
    Bar bar = Bar::kUnknown;
    /// Bars in a year; for intraday bars the days in a year. 0 when unknown.
    int periods_per_year = 0;
    /// True when the curve has values at weekends as it has in the week; never for longer bars
    /// than a day.
    bool trades_weekends = false;
};

/// The convention told by the dates alone: the median distance between two rows gives the bar, the
/// weekdays that occur give the year (365 days where weekends have bars, else 252). The number of
/// rows never matters, so a year with holes is still a year of 252 days.
///
/// Fewer than two times give an unknown bar and 0 periods.
Convention infer_convention(std::span<const Nanos> times);

/// The lower median distance between two rows, which tells the bar: of two equally frequent ones
/// the shorter. 0 for fewer than two times.
Nanos usual_gap(std::span<const Nanos> times);

/// "intraday", "daily", "weekly" and so on; "unknown" for a single row.
std::string_view bar_name(Bar bar);

} // namespace corvex::engine::inline v1
