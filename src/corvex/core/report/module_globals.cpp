#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

nb::handle& current() {
    static nb::handle globals;
    return globals;
}

} // namespace

nb::object global(const char* name) {
    if (PyObject* const found = PyDict_GetItemString(current().ptr(), name); found != nullptr) {
        return nb::borrow<nb::object>(found);
    }
    PyObject* const found = PyDict_GetItemString(PyEval_GetBuiltins(), name);
    if (found == nullptr) {
        PyErr_Format(PyExc_NameError, "name '%s' is not defined", name);
        throw nb::python_error();
    }
    return nb::borrow<nb::object>(found);
}

nb::dict module_globals() { return pyglue::as_dict(current()); }

void set_module_globals(nb::handle globals) { current() = globals; }

} // namespace corvex::report
