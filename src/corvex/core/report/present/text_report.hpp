#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

/// `to_text` and `to_terminal`.
std::span<const pyglue::FunctionSpec> text_methods();

} // namespace corvex::report
