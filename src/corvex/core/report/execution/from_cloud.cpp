#include "corvex/core/report/execution/from_cloud.hpp"

#include "corvex/core/report/document_path.hpp"
#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/strategy_name.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::concat;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

/// The service for documents, where this host can read from it; an empty object where not.
nb::object document_reader(nb::handle token_type) {
    if (!pyglue::is_text_equal(token_type, "id_token") ||
        pyglue::is_true(global("_force_legacy_upload"))) {
        return {};
    }
    const nb::object reader =
        pyglue::attribute_or(global("firestore_rest"), "fetch_document", nb::none());
    return reader.is_none() ? nb::object() : reader;
}

nb::object read_document(nb::handle reader, const nb::object& name, nb::handle token) {
    const nb::object path = document_path(token, name);
    if (!path) {
        pyglue::raise(PyExc_ValueError, "cannot decode uid from id_token");
    }
    return reader(path, token);
}

nb::object read_legacy(const nb::object& name, nb::handle token, nb::handle token_type) {
    nb::dict form;
    form[token_type] = token;
    form["collection"] = text("strategies");
    form["document_id"] = name;
    const nb::object response =
        global("requests")
            .attr("post")(global("LEGACY_AUTH_GET_STRATEGY_URL"), nb::arg("data") = form);
    const nb::object refusal = global("interpret_legacy_upload_response")(
        response.attr("status_code"), response.attr("text"));
    if (!refusal.is_none()) {
        pyglue::raise(PyExc_RuntimeError, pyglue::to_text(refusal["message"]));
    }
    const nb::object answer = global("json").attr("loads")(response.attr("text"));
    return PyDict_Check(answer.ptr()) ? answer.attr("get")(text("data")) : nb::none();
}

/// The execution part of a stored document; older ones have the holdings alone.
nb::object execution_part(nb::handle document, const nb::object& name) {
    if (PyDict_Check(document.ptr())) {
        for (const char* key : {"execution", "position2"}) {
            nb::object part = document.attr("get")(text(key));
            if (PyDict_Check(part.ptr())) {
                return part;
            }
        }
    }
    pyglue::raise(PyExc_ValueError,
                  concat({text("no execution state is published under the name "), name}));
}

nb::object from_cloud(const Call& call) {
    const nb::object name = cleaned_strategy_name(pyglue::as_str(call[1]));
    const nb::object login = global("get_token")();
    const nb::object token = login[0];
    const nb::object token_type = login[1];
    const nb::object reader = document_reader(token_type);
    const nb::object document = reader.is_valid() ? read_document(reader, name, token)
                                                  : read_legacy(name, token, token_type);
    return call.self().attr("from_json")(execution_part(document, name));
}

constexpr Parameter kFromCloud[] = {{"cls"}, {"strategy_id"}};

const FunctionSpec kMethods[] = {
    {"from_cloud", kFromCloud, from_cloud,
     "The execution state of a published report: one record, or a dictionary of named ones.\n\n"
     "Parameters\n----------\nstrategy_id : str\n    The name the report was uploaded under.\n\n"
     "Raises\n------\nValueError\n    Nothing readable is published under that name.\n"
     "RuntimeError\n    The service refuses the request.",
     pyglue::Binding::kClassMethod},
};

} // namespace

std::span<const FunctionSpec> from_cloud_methods() { return kMethods; }

} // namespace corvex::report
