#include "corvex/pyglue/objects.hpp"

namespace corvex::pyglue {

namespace {

[[noreturn]] void raise_wrong_type(const char* expected, nb::handle value) {
    PyErr_Format(PyExc_TypeError, "expected %s, got %.200s", expected,
                 Py_TYPE(value.ptr())->tp_name);
    throw nb::python_error();
}

nb::object checked(PyObject* result) {
    if (result == nullptr) {
        throw nb::python_error();
    }
    return nb::steal<nb::object>(result);
}

} // namespace

nb::dict as_dict(nb::handle value) {
    if (!PyDict_Check(value.ptr())) {
        raise_wrong_type("a dict", value);
    }
    return nb::borrow<nb::dict>(value);
}

nb::list as_list(nb::handle value) {
    if (!PyList_Check(value.ptr())) {
        raise_wrong_type("a list", value);
    }
    return nb::borrow<nb::list>(value);
}

nb::str as_str(nb::handle value) {
    if (!is_text(value)) {
        raise_wrong_type("a str", value);
    }
    return nb::borrow<nb::str>(value);
}

nb::tuple as_tuple(nb::handle value) {
    if (!PyTuple_Check(value.ptr())) {
        raise_wrong_type("a tuple", value);
    }
    return nb::borrow<nb::tuple>(value);
}

nb::object text(const char* utf8) { return checked(PyUnicode_FromString(utf8)); }

nb::object concat(std::initializer_list<nb::object> pieces) {
    nb::list list;
    for (const nb::object& piece : pieces) {
        list.append(piece);
    }
    return checked(PyUnicode_Join(text("").ptr(), list.ptr()));
}

nb::object to_text(nb::handle value) { return checked(PyObject_Str(value.ptr())); }

nb::object formatted(nb::handle value) { return checked(PyObject_Format(value.ptr(), nullptr)); }

bool is_text(nb::handle value) { return PyUnicode_Check(value.ptr()); }

bool is_true(nb::handle value) {
    const int truth = PyObject_IsTrue(value.ptr());
    if (truth < 0) {
        throw nb::python_error();
    }
    return truth != 0;
}

bool is_instance(nb::handle value, nb::handle type) { return nb::isinstance(value, type); }

Py_ssize_t length(nb::handle value) {
    const Py_ssize_t size = PyObject_Length(value.ptr());
    if (size < 0) {
        throw nb::python_error();
    }
    return size;
}

bool contains(nb::handle container, nb::handle item) {
    const int found = PySequence_Contains(container.ptr(), item.ptr());
    if (found < 0) {
        throw nb::python_error();
    }
    return found == 1;
}

bool contains(nb::handle container, const char* item) { return contains(container, text(item)); }

nb::object compare(nb::handle left, int op, nb::handle right) {
    return checked(PyObject_RichCompare(left.ptr(), right.ptr(), op));
}

bool equals(nb::handle left, nb::handle right) { return is_true(compare(left, Py_EQ, right)); }

nb::object attribute_or(nb::handle value, const char* name, nb::handle fallback) {
    PyObject* const found = PyObject_GetAttrString(value.ptr(), name);
    if (found != nullptr) {
        return nb::steal<nb::object>(found);
    }
    if (PyErr_ExceptionMatches(PyExc_AttributeError) == 0) {
        throw nb::python_error();
    }
    PyErr_Clear();
    return nb::borrow<nb::object>(fallback);
}

bool is_text_equal(nb::handle value, const char* expected) {
    return is_text(value) && PyUnicode_CompareWithASCIIString(value.ptr(), expected) == 0;
}

nb::object builtin(const char* name) { return import_module("builtins").attr(name); }

nb::object slice(nb::handle start, nb::handle stop) {
    return checked(PySlice_New(start.ptr(), stop.ptr(), nullptr));
}

nb::object integer(Py_ssize_t value) { return checked(PyLong_FromSsize_t(value)); }

nb::object number(double value) { return checked(PyFloat_FromDouble(value)); }

nb::object import_module(const char* name) { return checked(PyImport_ImportModule(name)); }

void raise(nb::handle exception_type, nb::handle message) {
    PyErr_SetObject(exception_type.ptr(), message.ptr());
    throw nb::python_error();
}

void raise(nb::handle exception_type, const char* message) {
    PyErr_SetString(exception_type.ptr(), message);
    throw nb::python_error();
}

bool exit_with_error(nb::handle exit, nb::python_error& error) {
    nb::object trace = error.traceback();
    if (!trace.is_valid()) {
        trace = nb::none();
    }
    return is_true(exit(error.type(), error.value(), trace));
}

} // namespace corvex::pyglue
