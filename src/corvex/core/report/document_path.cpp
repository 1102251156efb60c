#include "corvex/core/report/document_path.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

nb::object document_path(nb::handle token, nb::handle name) {
    const nb::object uid = global("firestore_rest").attr("extract_uid_from_id_token")(token);
    if (!pyglue::is_true(uid)) {
        return {};
    }
    return pyglue::concat({pyglue::text("users/"), pyglue::to_text(uid), pyglue::text("/reports/"),
                           nb::borrow<nb::object>(name)});
}

} // namespace corvex::report
