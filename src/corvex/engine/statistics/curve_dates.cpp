#include "corvex/engine/statistics/curve_dates.hpp"

namespace corvex::engine::inline v1 {

CurveDates::CurveDates(std::span<const Nanos> local_times)
    : times{local_times}, convention{infer_convention(times)}, months{month_periods(times)},
      years{year_periods(months)} {
    if (convention.bar == Bar::kIntraday) {
        day_ends = engine::day_ends(times);
    }
}

} // namespace corvex::engine::inline v1
