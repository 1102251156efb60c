#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The class `CustomUnpickler`, which reads files that name classes by their older places.
nanobind::object make_unpickler_class(const nanobind::dict& globals);

} // namespace corvex::report
