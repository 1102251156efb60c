#include "corvex/core/report/common/signal_dates.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

bool is_date(nb::handle value) {
    const nb::object types =
        nb::make_tuple(global("datetime").attr("datetime"), global("pd").attr("Timestamp"));
    return pyglue::is_instance(value, types) && !value.is(global("pd").attr("NaT"));
}

nb::object signal_date(nb::handle weights) {
    return date_or_none(pyglue::attribute_or(weights, "name", nb::none()));
}

nb::object date_or_none(nb::handle value) {
    return is_date(value) ? nb::borrow<nb::object>(value) : nb::none();
}

void set_signal_date(nb::handle weights, nb::handle date) {
    if (is_date(date)) {
        weights.attr("name") = date;
    }
}

} // namespace corvex::report
