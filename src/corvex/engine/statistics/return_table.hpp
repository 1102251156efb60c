#pragma once

#include "corvex/engine/core/dates.hpp"

#include <array>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// Returns of one calendar year.
struct YearReturns {
    int year;
    std::array<double, 12> months; ///< NaN where the month has no value
    double ytd;                    ///< return of the whole year, or of its part so far
};

/// Monthly and yearly returns of a curve, a row for each year that has a value.
///
/// A month counts from the end of the month before, or from its own first value where that month is
/// missing (so the first month is there). The year is worked out the same way from the values, not
/// from the months: a hole in the year loses nothing of it. Curves with bars longer than a month
/// have years only.
///
/// @param values  curve; missing values are dropped
/// @param times   local wall time of each value, increasing
/// @throws std::invalid_argument as PresentCurve
std::vector<YearReturns> return_table(std::span<const double> values, std::span<const Nanos> times);

} // namespace corvex::engine::inline v1
