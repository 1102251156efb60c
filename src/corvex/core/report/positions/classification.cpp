#include "corvex/core/report/positions/classification.hpp"

#include "corvex/core/report/common/signal_dates.hpp"

namespace corvex::report {

namespace {

namespace nb = nanobind;

bool compares(nb::handle left, int op, nb::handle right) {
    return pyglue::is_true(pyglue::compare(left, op, right));
}

} // namespace

const char* trade_type(nb::handle entry_signal, nb::handle exit_signal, bool entered, bool left,
                       nb::handle last_date) {
    if (!is_date(entry_signal)) {
        return nullptr;
    }
    if (is_date(exit_signal)) {
        return left && compares(exit_signal, Py_LT, last_date) ? "exit_p" : "exit";
    }
    if (compares(entry_signal, Py_GT, last_date)) {
        return "entry_f";
    }
    return compares(entry_signal, Py_EQ, last_date) || !entered ? "entry" : "hold";
}

} // namespace corvex::report
