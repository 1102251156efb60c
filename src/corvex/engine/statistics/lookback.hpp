#pragma once

#include "corvex/engine/series/bars.hpp"
#include "corvex/engine/series/periods.hpp"

#include <cstdint>
#include <limits>
#include <span>

namespace corvex::engine::inline v1 {

/// Returns up to the last value. NaN where the curve is too short, or its bars longer than the
/// window.
struct LookbackReturns {
    static constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

    double mtd = kUndefined;
    double three_month = kUndefined;
    double six_month = kUndefined;
    double ytd = kUndefined;
    double one_year = kUndefined;
    double three_year = kUndefined; ///< three, five and ten years are a year's compound growth
    double five_year = kUndefined;
    double ten_year = kUndefined;
};

/// (last / first)^(1 / years) - 1 with years of 365.25 days; NaN for no time or a negative ratio.
double compound_annual_growth(double first, double last, std::uint64_t elapsed);

/// Month and year to date count from the end of the period before, or from the period's own first
/// value where that one is missing. Windows of up to a year count from the last value not later
/// than the end less so many months; from month end to month end where the curve ends on the last
/// trading day of a month, or has bars of a month and more. The longer windows count from the first
/// value not earlier than the end less so many years, over the time that really passed since.
LookbackReturns lookback_returns(std::span<const double> values, std::span<const Nanos> times,
                                 std::span<const Period> months, std::span<const Period> years,
                                 const Convention& convention);

} // namespace corvex::engine::inline v1
