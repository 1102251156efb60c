#include "corvex/core/report/dates.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

bool is_timestamp(nb::handle value) {
    return pyglue::is_instance(value, global("pd").attr("Timestamp"));
}

bool is_datetime(nb::handle value) {
    return pyglue::is_instance(value, global("datetime").attr("datetime"));
}

nb::object find_latest_file(const Call& call) {
    const nb::handle directory = call[0];
    const nb::handle pattern = call[1];
    const nb::object path = global("os").attr("path");
    nb::object latest;
    nb::object latest_time;
    pyglue::for_each(global("os").attr("listdir")(directory), [&](const nb::object& name) {
        if (!pyglue::is_true(global("re").attr("match")(pattern, name))) {
            return true;
        }
        nb::object created = path.attr("getctime")(path.attr("join")(directory, name));
        if (!latest.is_valid() || pyglue::is_true(pyglue::compare(created, Py_GT, latest_time))) {
            latest = name;
            latest_time = std::move(created);
        }
        return true;
    });
    if (!latest.is_valid()) {
        pyglue::raise(PyExc_FileNotFoundError,
                      pyglue::concat({pyglue::text("No file found matching pattern '"),
                                      pyglue::to_text(pattern), pyglue::text("'")}));
    }
    return latest;
}

nb::object safe_utc_timestamp(const Call& call) {
    return is_timestamp(call[0]) || is_datetime(call[0]) ? call[0].attr("timestamp")() : nb::none();
}

nb::object safe_iso_datetime(const Call& call) {
    return is_timestamp(call[0]) || is_datetime(call[0]) ? call[0].attr("isoformat")() : nb::none();
}

nb::object parse_iso_datetime(const Call& call) {
    const nb::handle value = call[0];
    if (value.is_none()) {
        return nb::none();
    }
    // A Timestamp is a datetime too, but the result is always a plain one.
    if (is_timestamp(value)) {
        return value.attr("to_pydatetime")();
    }
    if (is_datetime(value)) {
        return nb::borrow<nb::object>(value);
    }
    const nb::object datetime = global("datetime");
    if (PyLong_Check(value.ptr()) || PyFloat_Check(value.ptr())) {
        return datetime.attr("datetime")
            .attr("fromtimestamp")(value, nb::arg("tz") = datetime.attr("timezone").attr("utc"));
    }
    if (pyglue::is_text(value)) {
        return datetime.attr("datetime").attr("fromisoformat")(value);
    }
    pyglue::raise(PyExc_ValueError, pyglue::concat({pyglue::text("Unsupported datetime value: "),
                                                    pyglue::formatted(value)}));
}

constexpr Parameter kFind[] = {{"directory"}, {"pattern"}};
constexpr Parameter kDate[] = {{"dt"}};
constexpr Parameter kValue[] = {{"value"}};

const FunctionSpec kFunctions[] = {
    {"find_latest_file", kFind, find_latest_file,
     "The name of the newest entry (by creation time) of a directory whose name matches a regular\n"
     "expression from its start.\n\nRaises FileNotFoundError when none matches."},
    {"_safe_utc_timestamp", kDate, safe_utc_timestamp,
     "POSIX seconds of a Timestamp or datetime, None for anything else."},
    {"_safe_iso_datetime", kDate, safe_iso_datetime,
     "ISO-8601 text of a Timestamp or datetime, None for anything else."},
    {"_parse_iso_datetime", kValue, parse_iso_datetime,
     "A datetime from a Timestamp, a datetime, POSIX seconds (aware, UTC) or ISO-8601 text; None "
     "stays\n"
     "None.\n\nRaises ValueError for anything else."},
};

} // namespace

std::span<const FunctionSpec> date_functions() { return kFunctions; }

} // namespace corvex::report
