#pragma once

#include "corvex/engine/statistics/record.hpp"

#include <array>
#include <cstddef>
#include <string_view>

namespace corvex::engine::inline v1 {

inline constexpr std::size_t kFigureCount = 43;

/// The public names of a record's figures, in the order in which figure_values gives them.
const std::array<std::string_view, kFigureCount>& figure_names();

std::array<double, kFigureCount> figure_values(const PerformanceRecord& record);

} // namespace corvex::engine::inline v1
