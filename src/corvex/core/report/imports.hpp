#pragma once

#include "corvex/pyglue/objects.hpp"

#include <initializer_list>

namespace corvex::report {

namespace nb = nanobind;

/// `import <module> as <name>` into a namespace, through the interpreter's import hook.
void import_as(nb::dict& globals, const char* module, const char* name);

/// `from <module> import <names>`: the names are bound one by one, and a missing one raises the
/// statement's own ImportError.
void import_names(nb::dict& globals, const char* module, std::initializer_list<const char*> names);

/// `from <module> import <name>` inside a function: the member itself.
nb::object imported(const char* module, const char* name);

} // namespace corvex::report
