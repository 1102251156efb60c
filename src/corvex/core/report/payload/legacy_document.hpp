#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The report as the older service stores it.
nanobind::dict legacy_document(nanobind::handle report);

} // namespace corvex::report
