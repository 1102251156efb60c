#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// The class `CustomEncoder`.
nanobind::object make_encoder_class(const nanobind::dict& globals);

} // namespace corvex::report
