#pragma once

#include "corvex/pyglue/class_builder.hpp"

namespace corvex::report {

/// Adds what live trading asks of a report: its execution state, metrics, and whether to act.
void add_live_members(pyglue::ClassBuilder& builder);

} // namespace corvex::report
