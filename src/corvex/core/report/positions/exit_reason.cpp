#include "corvex/core/report/positions/exit_reason.hpp"

#include "corvex/core/report/module_globals.hpp"

#include <cmath>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

constexpr const char* kNoReason = "_";

bool is_finite(nb::handle value) { return pyglue::is_true(global("np").attr("isfinite")(value)); }

bool has_trail_stop(nb::handle report) {
    const nb::object trail_stop = pyglue::attribute_or(report, "trail_stop", nb::none());
    return !trail_stop.is_none() && !pyglue::equals(trail_stop, pyglue::integer(0)) &&
           is_finite(trail_stop);
}

/// NaN where the profit is no number.
double as_number(nb::handle profit) {
    const nb::object number = nb::steal<nb::object>(PyNumber_Float(profit.ptr()));
    if (!number.is_valid()) {
        if (PyErr_ExceptionMatches(PyExc_Exception) == 0) {
            throw nb::python_error();
        }
        PyErr_Clear();
        return std::nan("");
    }
    return PyFloat_AsDouble(number.ptr());
}

bool is_either(nb::handle reason, const char* first, const char* second) {
    return pyglue::is_text_equal(reason, first) || pyglue::is_text_equal(reason, second);
}

nb::object normalize(const Call& call) {
    nb::object reason = nb::borrow<nb::object>(call[1]);
    if (pyglue::is_instance(reason, global("pd").attr("Series"))) {
        reason = pyglue::length(reason) > 0 ? nb::object(reason.attr("iloc")[-1]) : text(kNoReason);
    }
    if (pyglue::is_text_equal(reason, "hold")) {
        reason = text(kNoReason);
    }
    const double profit = as_number(call[2]);
    if (!std::isfinite(profit)) {
        return reason;
    }
    // A stop-loss on a gain is only credible where a trailing stop can lock one in.
    if (is_either(reason, "sl", "sl_") && profit > 0 && !has_trail_stop(call.self())) {
        return text(kNoReason);
    }
    if (is_either(reason, "tp", "tp_") && profit < 0) {
        return text(kNoReason);
    }
    return reason;
}

constexpr Parameter kNormalize[] = {{"self"}, {"reason"}, {"profit"}};

const FunctionSpec kMethod{
    "_normalize_position_exit_reason", kNormalize, normalize,
    "The reason of an exit as shown: \"_\" where it is none, or not credible for the\n"
    "trade's profit."};

} // namespace

const FunctionSpec& exit_reason_method() { return kMethod; }

} // namespace corvex::report
