#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `display`, `to_html` and `_repr_html_`.
std::span<const pyglue::FunctionSpec> display_methods();

} // namespace corvex::report
