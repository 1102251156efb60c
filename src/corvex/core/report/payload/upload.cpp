#include "corvex/core/report/payload/upload.hpp"

#include "corvex/core/report/document_path.hpp"
#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/payload/legacy_document.hpp"
#include "corvex/core/report/strategy_name.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

constexpr const char* kForcedName = "CORVEX_FORCED_STRATEGY_NAME";
constexpr long kTradesLimit = 500;
/// A shorter text is no secret, and blotting it out would garble ordinary words.
constexpr Py_ssize_t kShortestSecret = 8;

nb::dict status_record(const char* status) {
    nb::dict record;
    record["status"] = text(status);
    return record;
}

nb::dict error_record(const nb::object& message) {
    nb::dict record = status_record("error");
    record["message"] = message;
    return record;
}

/// What a service says may quote what it was sent: the token is blotted out of it.
nb::object without_token(nb::handle message, nb::handle token) {
    if (!pyglue::is_text(message) || !pyglue::is_text(token) ||
        pyglue::length(token) < kShortestSecret) {
        return nb::borrow<nb::object>(message);
    }
    return message.attr("replace")(token, text("***"));
}

/// Where the name is forced a program reads the result, else a person.
nb::object success() {
    const nb::object environment = global("os").attr("environ");
    return pyglue::contains(environment, kForcedName) ? nb::object(status_record("success"))
                                                      : nb::borrow<nb::object>(Py_True);
}

nb::object utc_now_text() {
    const nb::object datetime = global("datetime");
    return datetime.attr("datetime")
        .attr("now")(datetime.attr("timezone").attr("utc"))
        .attr("isoformat")();
}

nb::dict cloud_document(nb::handle payload, nb::handle name) {
    nb::dict document;
    document["schema"] = payload["schema"];
    document["sid"] = name;
    document["name"] = name;
    for (const char* part : {"report", "execution", "holdings"}) {
        document[part] = payload[part];
    }
    document["updated_at"] = utc_now_text();
    return document;
}

nb::object cloud_payload(nb::handle report) {
    return report.attr("to_payload_dict")(nb::arg("trades_limit") = pyglue::integer(kTradesLimit));
}

nb::object upload_document(nb::handle report, const nb::object& name, nb::handle token) {
    const nb::object payload = cloud_payload(report);
    try {
        const nb::object path = document_path(token, name);
        if (!path) {
            return error_record(text("cannot decode uid from id_token"));
        }
        global("firestore_rest")
            .attr("upsert_document")(path, cloud_document(payload, name), token);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_Exception)) {
            throw;
        }
        return error_record(without_token(pyglue::to_text(error.value()), token));
    }
    return success();
}

nb::dict legacy_form(nb::handle document, nb::handle name, nb::handle token,
                     nb::handle token_type) {
    nb::dict form;
    form["data"] =
        global("json").attr("dumps")(document, nb::arg("default") = global("default_serialize"));
    form[token_type] = token;
    form["collection"] = text("strategies");
    form["document_id"] = name;
    return form;
}

/// Tells of a refusal, and gives it without the token.
nb::object refused(nb::handle result, nb::handle token) {
    const nb::object message = result["message"];
    const nb::object harmless = without_token(message, token);
    const nb::object print = global("print");
    print(text("Fail to upload result to server"));
    print(text("error message"), harmless);
    if (!pyglue::is_text(message) || pyglue::equals(message, harmless)) {
        return nb::borrow<nb::object>(result);
    }
    const nb::object cleaned = global("dict")(result);
    cleaned["message"] = harmless;
    return cleaned;
}

nb::object post_form(const nb::dict& form, nb::handle token) {
    const nb::object url = global("LEGACY_WRITE_DATABASE_URL");
    if (pyglue::is_true(global("post_legacy_upload_pyodide_no_cors")(url, form))) {
        return success();
    }
    const nb::object response = global("requests").attr("post")(url, nb::arg("data") = form);
    const nb::object result = global("interpret_legacy_upload_response")(
        response.attr("status_code"), response.attr("text"));
    return result.is_none() ? success() : refused(result, token);
}

nb::object published_name(nb::handle given) {
    return cleaned_strategy_name(
        global("resolve_upload_name")(given, global("os").attr("environ")));
}

nb::object upload_name(const Call& call) { return published_name(call[0]); }

nb::object rehearse_upload(const Call& call) {
    const nb::object name = published_name(call[1]);
    return nb::make_tuple(name, cloud_document(cloud_payload(call.self()), name));
}

nb::object upload(const Call& call) {
    const nb::handle self = call.self();
    const nb::object name = published_name(call[1]);
    const nb::object login = global("get_token")();
    const nb::object token = login[0];
    const nb::object token_type = login[1];
    if (pyglue::is_text_equal(token_type, "id_token") &&
        !pyglue::is_true(global("_force_legacy_upload"))) {
        return upload_document(self, name, token);
    }
    return post_form(legacy_form(legacy_document(self), name, token, token_type), token);
}

constexpr Parameter kUpload[] = {{"self"}, {"name", nullptr}};
constexpr Parameter kName[] = {{"name", nullptr}};

const FunctionSpec kMethods[] = {
    {"upload", kUpload, upload,
     "Publish the report to the user's cloud account.\n\nParameters\n----------\nname : str, "
     "optional\n"
     "    The strategy's name; one that holds Chinese must begin with it.\n\nReturns\n-------\n"
     "True or dict\n    True on success ({\"status\": \"success\"} where the name is forced by\n"
     "    CORVEX_FORCED_STRATEGY_NAME), else a dictionary with a `message`.\n\nRaises\n------\n"
     "Exception\n    A name that the service does not take."},
    {"_upload_name", kName, upload_name,
     "The name under which `upload` would publish. Raises as it does.",
     pyglue::Binding::kStaticMethod},
    {"_rehearse_upload", kUpload, rehearse_upload,
     "The name that `upload` would use, and the document it would write to the document service."},
};

} // namespace

std::span<const FunctionSpec> upload_methods() { return kMethods; }

} // namespace corvex::report
