#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// Fills the module's namespace, step by step in a fixed order: libraries, siblings, helpers,
/// constants, classes. The first failing step ends it with that step's own error.
void run_load_sequence(nanobind::dict globals);

} // namespace corvex::report
