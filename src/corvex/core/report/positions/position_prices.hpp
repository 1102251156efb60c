#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// For each current trade, the adjusted trading price on its entry date (NaN where not known), as a
/// list. `trade_at` is the name of a price.
nanobind::object entry_adjusted_prices(nanobind::handle market, nanobind::handle trade_at,
                                       nanobind::handle asset_ids, nanobind::handle entry_dates);

/// For each asset id the latest trading price, or the latest close where it has none, as a list.
nanobind::object current_prices(nanobind::handle market, nanobind::handle trade_at,
                                nanobind::handle asset_ids);

} // namespace corvex::report
