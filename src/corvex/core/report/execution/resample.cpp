#include "corvex/core/report/execution/resample.hpp"

#include "corvex/core/report/execution/stored_dates.hpp"
#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

/// A date of a list by its own `timestamp()`; other forms (texts, numpy dates) through pandas.
nb::object epoch_seconds(nb::handle date) {
    const nb::object datetime = global("datetime").attr("datetime");
    return pyglue::is_instance(date, datetime)
               ? date.attr("timestamp")()
               : global("pd").attr("Timestamp")(date).attr("timestamp")();
}

nb::object index_seconds(nb::handle dates) {
    const nb::object index = global("pd").attr("DatetimeIndex")(dates);
    const nb::object nanoseconds =
        index.attr("as_unit")(pyglue::text("ns")).attr("astype")(pyglue::text("int64"));
    return (nanoseconds / pyglue::number(kNanosPerSecond)).attr("tolist")();
}

} // namespace

nb::object stored_resample(nb::handle resample) {
    if (resample.is_none() || pyglue::is_text(resample)) {
        return nb::borrow<nb::object>(resample);
    }
    if (nb::hasattr(resample, "dtype")) {
        return index_seconds(resample);
    }
    nb::list seconds;
    pyglue::for_each(resample, [&](const nb::object& date) {
        seconds.append(epoch_seconds(date));
        return true;
    });
    return seconds;
}

nb::object read_resample(nb::handle stored) {
    if (stored.is_none() || pyglue::is_text(stored)) {
        return nb::borrow<nb::object>(stored);
    }
    if (!PyList_Check(stored.ptr()) && !PyTuple_Check(stored.ptr())) {
        raise_unreadable("resample", "None, a frequency text or a list of dates", stored);
    }
    nb::list dates;
    pyglue::for_each(stored, [&](const nb::object& date) {
        dates.append(naive_utc(read_date("resample", date)));
        return true;
    });
    return dates;
}

} // namespace corvex::report
