#include "corvex/core/report/common/resample.hpp"

#include "corvex/core/report/common/stored_dates.hpp"
#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

bool is_aware(nb::handle stamp) { return !stamp.attr("tzinfo").is_none(); }

/// A midnight of its own zone names a date; any other time is a moment.
bool names_date(nb::handle stamp) { return pyglue::equals(stamp.attr("normalize")(), stamp); }

nb::object without_zone(nb::handle stamp) { return stamp.attr("tz_localize")(nb::none()); }

/// A date as the seconds of its midnight in UTC, whatever its zone, so that it is read back as the
/// same date. A plain datetime without zone is no local time of this machine: through pandas.
nb::object epoch_seconds(nb::handle date) {
    const nb::object stamp = global("pd").attr("Timestamp")(date);
    return (names_date(stamp) ? without_zone(stamp) : stamp).attr("timestamp")();
}

bool is_number(nb::handle value) {
    return PyFloat_Check(value.ptr()) != 0 || PyLong_Check(value.ptr()) != 0;
}

nb::object read_text_date(nb::handle stored) {
    const nb::object stamp = read_date("resample", stored);
    if (!is_aware(stamp)) {
        return stamp;
    }
    return names_date(stamp) ? without_zone(stamp) : stamp.attr("tz_convert")(pyglue::text("UTC"));
}

} // namespace

nb::object stored_resample(nb::handle resample) {
    if (resample.is_none() || pyglue::is_text(resample)) {
        return nb::borrow<nb::object>(resample);
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
    // Seconds that are all midnights are dates; others are moments, and then all of them are.
    bool dates_only = true;
    nb::list dates;
    pyglue::for_each(stored, [&](const nb::object& date) {
        dates.append(is_number(date) ? read_date("resample", date) : read_text_date(date));
        dates_only = dates_only && (!is_number(date) || names_date(dates[nb::len(dates) - 1]));
        return true;
    });
    if (!dates_only) {
        for (std::size_t at = 0; at < nb::len(dates); ++at) {
            if (const nb::object date = dates[at]; !is_aware(date)) {
                dates[at] = date.attr("tz_localize")(pyglue::text("UTC"));
            }
        }
    }
    return dates;
}

} // namespace corvex::report
