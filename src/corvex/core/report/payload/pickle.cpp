#include "corvex/core/report/payload/pickle.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

/// The cached metrics know the live report: written along, they would bring a second report into
/// the file. They are rebuilt when next asked for.
void drop_cached_metrics(nb::handle report) {
    const nb::object attributes = pyglue::attribute_or(report, "__dict__", nb::none());
    if (PyDict_Check(attributes.ptr())) {
        attributes.attr("pop")(pyglue::text("metrics"), nb::none());
    }
}

nb::object to_pickle(const Call& call) {
    const nb::object report = global("copy").attr("copy")(call.self());
    drop_cached_metrics(report);
    return pyglue::with(global("open")(call[1], pyglue::text("wb")), [&](const nb::object& file) {
        global("pickle").attr("dump")(report, file);
        return nb::none();
    });
}

nb::object from_pickle(const Call& call) {
    return pyglue::with(global("open")(call[1], pyglue::text("rb")), [&](const nb::object& file) {
        return nb::object(global("CustomUnpickler")(file).attr("load")());
    });
}

constexpr Parameter kToPickle[] = {{"self"}, {"file_path"}};
constexpr Parameter kFromPickle[] = {{"cls"}, {"file_path"}};

const FunctionSpec kMethods[] = {
    {"to_pickle", kToPickle, to_pickle,
     "Write the whole report to a pickle file.\n\nParameters\n----------\nfile_path : str or path\n"
     "    The file to write; an existing one is replaced."},
    {"from_pickle", kFromPickle, from_pickle,
     "Read a report that `to_pickle` wrote, in this or an older "
     "version.\n\nParameters\n----------\n"
     "file_path : str or path\n    The file to read. Reading a pickle runs code that it names: "
     "open only\n"
     "    files that you trust.",
     pyglue::Binding::kClassMethod},
};

} // namespace

std::span<const FunctionSpec> pickle_methods() { return kMethods; }

} // namespace corvex::report
