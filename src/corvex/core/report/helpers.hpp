#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// `is_in_vscode`, `daily_return`, `safe_division` and `calc_cagr`.
void bind_helpers(nanobind::dict& globals);

} // namespace corvex::report
