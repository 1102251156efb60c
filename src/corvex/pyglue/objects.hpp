#pragma once

#include <Python.h>

#include <nanobind/nanobind.h>

#include <initializer_list>

namespace corvex::pyglue {

namespace nb = nanobind;

// nanobind's typed wrappers do not check what they are given: `nb::dict d = x.attr("y")` holding an
// int reads wild memory. These do, and raise TypeError.
nb::dict as_dict(nb::handle value);
nb::list as_list(nb::handle value);
nb::str as_str(nb::handle value);
nb::tuple as_tuple(nb::handle value);

/// A text object; `text` is UTF-8.
nb::object text(const char* utf8);

/// The pieces joined into one text. Raises TypeError when a piece is no text.
nb::object concat(std::initializer_list<nb::object> pieces);

/// `str(value)` and `format(value)`.
nb::object to_text(nb::handle value);
nb::object formatted(nb::handle value);

bool is_text(nb::handle value);
bool is_true(nb::handle value);
bool is_instance(nb::handle value, nb::handle type);
Py_ssize_t length(nb::handle value);

/// `item in container`.
bool contains(nb::handle container, nb::handle item);
bool contains(nb::handle container, const char* item);

/// Elementwise for arrays and tables; `op` is Py_EQ, Py_NE, Py_LT, Py_LE, Py_GT or Py_GE.
nb::object compare(nb::handle left, int op, nb::handle right);

/// `bool(left == right)`.
bool equals(nb::handle left, nb::handle right);

/// `getattr(value, name, fallback)`: only AttributeError is replaced by the fallback.
nb::object attribute_or(nb::handle value, const char* name, nb::handle fallback);

/// `isinstance(value, str) and value == expected`, without asking arrays for a truth value.
bool is_text_equal(nb::handle value, const char* expected);

/// A member of the builtins module as it is now.
nb::object builtin(const char* name);

/// A slice object `[start:stop]`; pass nb::none() for an open end.
nb::object slice(nb::handle start, nb::handle stop);

nb::object integer(Py_ssize_t value);
nb::object number(double value);

/// An `import` of a module by its full name, giving that very module.
nb::object import_module(const char* name);

[[noreturn]] void raise(nb::handle exception_type, nb::handle message);
[[noreturn]] void raise(nb::handle exception_type, const char* message);

/// Runs `body(entered)` between the manager's __enter__ and __exit__, with the semantics of the
/// `with` statement: __exit__ is told of a Python exception and may swallow it, in which case the
/// result is None.
template <typename Body>
nb::object with(nb::handle manager, Body&& body);

/// Calls __exit__ for an exception in flight; true when the manager swallows it.
bool exit_with_error(nb::handle exit, nb::python_error& error);

template <typename Body>
nb::object with(nb::handle manager, Body&& body) {
    const nb::object exit = manager.attr("__exit__");
    const nb::object entered = manager.attr("__enter__")();
    nb::object result;
    try {
        result = body(entered);
    } catch (nb::python_error& error) {
        if (!exit_with_error(exit, error)) {
            throw;
        }
        return nb::none();
    }
    exit(nb::none(), nb::none(), nb::none());
    return result;
}

/// Calls `visit(item)` for each item of an iterable; stops early when `visit` returns false.
template <typename Visit>
void for_each(nb::handle iterable, Visit&& visit) {
    const nb::object iterator = nb::steal<nb::object>(PyObject_GetIter(iterable.ptr()));
    if (!iterator.is_valid()) {
        throw nb::python_error();
    }
    while (true) {
        const nb::object item = nb::steal<nb::object>(PyIter_Next(iterator.ptr()));
        if (!item.is_valid()) {
            if (PyErr_Occurred() != nullptr) {
                throw nb::python_error();
            }
            return;
        }
        if (!visit(item)) {
            return;
        }
    }
}

} // namespace corvex::pyglue
