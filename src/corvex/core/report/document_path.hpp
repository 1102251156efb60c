#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// Where the document service keeps the report of a name for the bearer of an id token; an empty
/// object for a token that names nobody.
nanobind::object document_path(nanobind::handle token, nanobind::handle name);

} // namespace corvex::report
