#pragma once

#include "corvex/pyglue/objects.hpp"

#include <utility>

namespace corvex::report {

/// An asset label is "<id> <name>": the id up to the first blank, the name ("" where there is
/// none).
std::pair<nanobind::object, nanobind::object> split_label(nanobind::handle label);

/// Id and name joined again.
nanobind::object join_label(nanobind::handle asset_id, nanobind::handle asset_name);

} // namespace corvex::report
