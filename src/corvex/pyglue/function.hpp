#pragma once

#include "corvex/pyglue/call.hpp"

namespace corvex::pyglue {

/// Makes a function object that behaves as one written in Python does: it binds to any instance,
/// is introspectable by `inspect`, picklable by its qualified name, weakly referencable, open for
/// attributes, and takes part in garbage collection.
///
/// @param spec     must outlive the function
/// @param globals  the namespace of the module, given as `__globals__`
/// @param scope    prefix of the qualified name ("Report" for a method), "" for module level
nb::object make_function(const FunctionSpec& spec, nb::dict globals, const char* scope = "");

/// Whether a value is a function that was made from this very table.
bool is_function(nb::handle value, const FunctionSpec& spec);

/// Tells a function the class whose body defined it, which `Call::super` needs. Objects that are
/// not ours are left alone.
void set_owner(nb::handle function, nb::handle owner);

} // namespace corvex::pyglue
