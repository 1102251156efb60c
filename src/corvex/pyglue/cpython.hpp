#pragma once

#include <Python.h>

#include <array>
#include <type_traits>

/// All that is used of CPython beyond its stable interface, which may change from one version to
/// the next. What the compiler can check of it is checked here; `tests/host` checks the rest by
/// running it, on each version that `make test-pythons` finds.
namespace corvex::pyglue::cpython {

static_assert(PY_VERSION_HEX >= 0x030C0000, "corvex needs CPython 3.12 or newer");

// Code objects: made empty, and given parameters by their `replace`, for `inspect` to read.
static_assert(
    std::is_same_v<decltype(PyCode_NewEmpty), PyCodeObject*(const char*, const char*, int)>);
static_assert(CO_OPTIMIZED == 0x01 && CO_NEWLOCALS == 0x02 && CO_VARKEYWORDS == 0x08);

// Function objects: called by vectorcall at an offset, bound as methods without a bound object.
static_assert(std::is_same_v<vectorcallfunc,
                             PyObject* (*)(PyObject*, PyObject* const*, std::size_t, PyObject*)>);
static_assert(Py_TPFLAGS_HAVE_VECTORCALL == 1UL << 11U &&
              Py_TPFLAGS_METHOD_DESCRIPTOR == 1UL << 17U);

/// A code object without parameters that never runs; a new reference, or nullptr with an error set.
inline PyObject* empty_code(const char* function_name) {
    return reinterpret_cast<PyObject*>(PyCode_NewEmpty("<compiled>", function_name, 1));
}

/// The slots of a module that keeps its state in the process: one interpreter loads it, and a
/// free-threaded one takes the lock of the interpreter back, of which Python warns.
inline auto module_slots(int (*execute)(PyObject*)) noexcept {
    return std::array{
        PyModuleDef_Slot{Py_mod_exec, reinterpret_cast<void*>(execute)},
        PyModuleDef_Slot{Py_mod_multiple_interpreters, Py_MOD_MULTIPLE_INTERPRETERS_NOT_SUPPORTED},
#if PY_VERSION_HEX >= 0x030D0000
        PyModuleDef_Slot{Py_mod_gil, Py_MOD_GIL_USED},
#endif
        PyModuleDef_Slot{0, nullptr},
    };
}

} // namespace corvex::pyglue::cpython
