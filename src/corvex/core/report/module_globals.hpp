#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

namespace nb = nanobind;

/// A name as Python code of this module would find it: in the module's namespace as it is now, then
/// among the builtins. So rebinding a name in the module takes effect. Raises NameError.
nb::object global(const char* name);

/// The module's namespace.
nb::dict module_globals();

/// Set when loading starts, cleared (with a null handle) when it fails. The namespace is kept alive
/// by the functions that live in it.
void set_module_globals(nb::handle globals);

} // namespace corvex::report
