#pragma once

#include "corvex/engine/core/table.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// The row of each time among the dates of a table, -1 where no date is exactly that time.
///
/// @param dates    of the table, strictly rising; of others some may not be found
/// @param times    in any order, missing ones too
/// @param per_day  units of both in a day, > 0
/// @throws std::invalid_argument when `per_day` is not positive
std::vector<std::int64_t> rows_of_times(std::span<const std::int64_t> dates,
                                        std::span<const std::int64_t> times, std::int64_t per_day);

/// One value of a table for each pair of a row and a column; NaN where either is negative.
///
/// @throws std::invalid_argument for lists of different length, or a place beyond the table
std::vector<double> table_cells(const TableView& table, std::span<const std::int64_t> rows,
                                std::span<const std::int64_t> columns);

} // namespace corvex::engine::inline v1
