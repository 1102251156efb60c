#pragma once

#include "corvex/engine/series/bars.hpp"
#include "corvex/engine/series/periods.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// What the figures of a curve ask of its dates alone. Curves over the same dates share it.
struct CurveDates {
    /// @param local_times  wall time of each value, increasing; they must outlive the object
    explicit CurveDates(std::span<const Nanos> local_times);

    std::span<const Nanos> times;
    Convention convention;
    std::vector<Period> months;
    std::vector<Period> years;
    std::vector<std::size_t> day_ends; ///< last row of each day of intraday bars; else empty
};

} // namespace corvex::engine::inline v1
