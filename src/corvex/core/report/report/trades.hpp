#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

namespace nb = nanobind;

/// The trade table: reading it, and adding to it what a table of dates x assets knows.
std::span<const pyglue::FunctionSpec> trade_methods();

/// The column that names the asset of a trade: "symbol", or "stock_id" in older tables.
const char* asset_column(nb::handle trades);

} // namespace corvex::report
