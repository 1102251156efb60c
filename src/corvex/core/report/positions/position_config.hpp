#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// How the strategy trades, for consumers of its holdings: the form of a report that has current
/// trades, and the one of a report that has none.
nanobind::dict full_position_config(nanobind::handle report);
nanobind::dict short_position_config(nanobind::handle report);

/// The price at which the report trades as a label: "custom" for a table.
nanobind::object trade_at_label(nanobind::handle report);

} // namespace corvex::report
