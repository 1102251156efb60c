#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// A strategy name as the services take it. Raises Exception for a name that holds Chinese but
/// begins with a Latin letter.
nanobind::object cleaned_strategy_name(nanobind::handle name);

} // namespace corvex::report
