#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// Shows the figures and tables of the older view, one after the other, with `show`.
void show_older_view(nanobind::handle report, nanobind::handle show);

} // namespace corvex::report
