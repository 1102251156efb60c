#include "corvex/core/report/payload/pickle.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/payload/checksum.hpp"
#include "corvex/core/report/whole_file.hpp"

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

/// Pickled in memory first: an object that cannot be pickled costs no file, and a full disk is told
/// apart from it.
nb::object to_pickle(const Call& call) {
    const nb::object report = global("copy").attr("copy")(call.self());
    drop_cached_metrics(report);
    const nb::object buffer = pyglue::import_module("io").attr("BytesIO")();
    global("pickle").attr("dump")(report, buffer);
    const nb::object content = buffer.attr("getbuffer")();
    const nb::object trailer = checksum_trailer(content);
    write_whole_file(call[1], FileKind::kBinary, [&](const nb::object& file) {
        file.attr("write")(content);
        file.attr("write")(trailer);
    });
    return nb::none();
}

nb::object from_pickle(const Call& call) {
    return pyglue::with(global("open")(call[1], pyglue::text("rb")), [&](const nb::object& file) {
        const nb::object checked = call.self().attr("_checked_pickle")(file);
        return nb::object(global("CustomUnpickler")(checked).attr("load")());
    });
}

nb::object checked_pickle(const Call& call) { return checked_content(call[0]); }

constexpr Parameter kToPickle[] = {{"self"}, {"file_path"}};
constexpr Parameter kFromPickle[] = {{"cls"}, {"file_path"}};
constexpr Parameter kCheckedPickle[] = {{"file"}};

const FunctionSpec kMethods[] = {
    {"to_pickle", kToPickle, to_pickle,
     "Write the whole report to a pickle file.\n\nParameters\n----------\nfile_path : str or path\n"
     "    The file to write. It appears whole, with a checksum behind its end, or the one that "
     "was\n"
     "    there stays."},
    {"from_pickle", kFromPickle, from_pickle,
     "Read a report that `to_pickle` wrote, in this or an older "
     "version.\n\nParameters\n----------\n"
     "file_path : str or path\n"
     "    The file to read. A pickle names what is called while it is read: whoever made it can\n"
     "    run any program as you. Open only files that you trust.\n\nRaises\n------\n"
     "pickle.UnpicklingError\n"
     "    The file was damaged after it was saved; told before anything in it is run.",
     pyglue::Binding::kClassMethod},
    {"_checked_pickle", kCheckedPickle, checked_pickle,
     "The open binary file (or its content, where it cannot be read twice), found undamaged and\n"
     "at its start, for an unpickler.",
     pyglue::Binding::kStaticMethod},
};

} // namespace

std::span<const FunctionSpec> pickle_methods() { return kMethods; }

} // namespace corvex::report
