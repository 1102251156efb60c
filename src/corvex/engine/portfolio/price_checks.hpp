#pragma once

#include "corvex/engine/portfolio/price_table.hpp"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace corvex::engine::inline v1 {

/// For each asset the last session with a price, -1 for an asset without any.
///
/// Reads from the end and only the columns that are still unresolved, so it touches little more
/// than the last row where most assets have a price to the end.
std::vector<std::int64_t> last_priced_sessions(const PriceTable& prices);

/// Session and asset of the first price that is zero, negative or infinite; NaN counts as missing.
std::optional<std::pair<std::size_t, std::size_t>> first_bad_price(const PriceTable& prices);

} // namespace corvex::engine::inline v1
