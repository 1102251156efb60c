#include "corvex/core/report/imports.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

nb::object import_statement(const nb::dict& globals, const char* module, nb::handle names) {
    return pyglue::builtin("__import__")(pyglue::text(module), globals, nb::none(), names,
                                         pyglue::integer(0));
}

[[noreturn]] void raise_cannot_import(nb::handle module, const char* module_name,
                                      const char* name) {
    const nb::object path = pyglue::attribute_or(module, "__file__", nb::none());
    const nb::object where = path.is_none() ? pyglue::text("unknown location") : path;
    const nb::object message = pyglue::concat(
        {pyglue::text("cannot import name '"), pyglue::text(name), pyglue::text("' from '"),
         pyglue::text(module_name), pyglue::text("' ("), where, pyglue::text(")")});
    PyErr_SetImportError(message.ptr(), pyglue::text(module_name).ptr(),
                         path.is_none() ? nullptr : path.ptr());
    throw nb::python_error();
}

/// The module of a `from` import; the names are handed along, since a package may load submodules
/// for them.
nb::object import_source(const nb::dict& globals, const char* module,
                         std::initializer_list<const char*> names) {
    nb::list wanted;
    for (const char* name : names) {
        wanted.append(pyglue::text(name));
    }
    return import_statement(globals, module, nb::tuple(wanted));
}

/// A member, or the submodule of that name while its package is still being loaded.
nb::object member_of(const nb::object& module, const char* module_name, const char* name) {
    const nb::object missing =
        nb::steal<nb::object>(PyObject_CallNoArgs(reinterpret_cast<PyObject*>(&PyBaseObject_Type)));
    nb::object found = pyglue::attribute_or(module, name, missing);
    if (!found.is(missing)) {
        return found;
    }
    const nb::object full_name =
        pyglue::concat({pyglue::text(module_name), pyglue::text("."), pyglue::text(name)});
    found = pyglue::import_module("sys").attr("modules").attr("get")(full_name, missing);
    if (found.is(missing)) {
        raise_cannot_import(module, module_name, name);
    }
    return found;
}

} // namespace

void import_as(nb::dict& globals, const char* module, const char* name) {
    globals[name] = import_statement(globals, module, nb::none());
}

void import_names(nb::dict& globals, const char* module, std::initializer_list<const char*> names) {
    const nb::object source = import_source(globals, module, names);
    for (const char* name : names) {
        globals[name] = member_of(source, module, name);
    }
}

nb::object imported(const char* module, const char* name) {
    return member_of(import_source(module_globals(), module, {name}), module, name);
}

} // namespace corvex::report
