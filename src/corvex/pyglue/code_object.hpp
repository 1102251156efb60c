#pragma once

#include "corvex/pyglue/call.hpp"

namespace corvex::pyglue {

/// A code object that never runs: it carries the parameter names and counts, from which `inspect`
/// reads a function's signature unaided.
nb::object make_code_object(const FunctionSpec& spec, const nb::tuple& names, nb::handle module,
                            nb::handle qualname);

} // namespace corvex::pyglue
