#include "corvex/core/report/common/stored_dates.hpp"

#include "corvex/core/report/module_globals.hpp"

#include <cmath>

namespace corvex::report {

namespace {

/// The range of nanosecond dates, in seconds: some 292 years around 1970.
constexpr double kLastSecond = 9.2e9;
constexpr double kMicrosPerSecond = 1e6;
constexpr Py_ssize_t kNanosPerMicro = 1000;

/// A number as it is; anything else may be long or deeply nested, and its type tells enough.
nb::object shown(nb::handle value) {
    if (PyFloat_Check(value.ptr()) || PyLong_Check(value.ptr())) {
        const nb::object digits = nb::steal<nb::object>(PyObject_Repr(value.ptr()));
        if (digits.is_valid()) {
            return digits;
        }
        PyErr_Clear(); // Python refuses to write integers of thousands of digits.
    }
    return pyglue::to_text(value.type());
}

nb::object from_epoch_seconds(const char* what, nb::handle stored) {
    const double seconds = PyFloat_AsDouble(stored.ptr());
    if ((seconds == -1.0 && PyErr_Occurred() != nullptr) || !(std::abs(seconds) < kLastSecond)) {
        PyErr_Clear();
        raise_unreadable(what, "a date between 1677 and 2262", stored);
    }
    // A float of seconds holds microseconds; below them lies only noise.
    const long long micros = std::llround(seconds * kMicrosPerSecond);
    return global("pd").attr("Timestamp")(pyglue::integer(micros * kNanosPerMicro));
}

/// pandas refuses some texts with errors of other kinds than ValueError.
nb::object from_text(nb::handle stored) {
    try {
        return global("pd").attr("Timestamp")(stored);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_Exception) || error.matches(PyExc_ValueError)) {
            throw;
        }
        return global("pd").attr("NaT");
    }
}

} // namespace

void raise_unreadable(const char* what, const char* accepted, nb::handle value) {
    pyglue::raise(PyExc_ValueError,
                  pyglue::concat({pyglue::text(what), pyglue::text(" should be "),
                                  pyglue::text(accepted), pyglue::text(", got "), shown(value)}));
}

nb::object read_date(const char* what, nb::handle stored) {
    if (PyLong_Check(stored.ptr()) || PyFloat_Check(stored.ptr())) {
        return from_epoch_seconds(what, stored);
    }
    if (!pyglue::is_text(stored)) {
        raise_unreadable(what, "POSIX seconds or an ISO-8601 text", stored);
    }
    const nb::object date = from_text(stored);
    if (date.is(global("pd").attr("NaT"))) {
        raise_unreadable(what, "POSIX seconds or an ISO-8601 text", stored);
    }
    return date;
}

} // namespace corvex::report
